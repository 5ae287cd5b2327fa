#include "service/config/ConfigExport.h"

#include "kelCore/AtomicFile.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/DefaultSettings.h"
#include "orvInfo/Plan/Backup.h"
#include "orvInfo/Plan/Factory.h"
#include "orvInfo/Plan/Restore.h"
#include "service/ServiceLog.h"
#include "service/accounts/AccountCatalog.h"
#include "service/accounts/AccountSecrets.h"
#include "service/config/ConfigFile.h"
#include "service/config/ConfigTransfer.h"
#include "service/config/PassphraseSeal.h"
#include "service/plans/PlanCatalog.h"

#include <QJsonArray>
#include <optional>

namespace Orv::Service {

namespace {

namespace Reply = Orv::Common::Communication::Commands::Format::Storage::GetConnection::Reply;
namespace Info = Orv::Common::Communication::Commands::Format::Plan::DataType::Info;
using Orv::Info::Plan::Base;
using Orv::Info::Plan::Secret;

// Every setting by its key; one at its default is null, so that the importing
// instance takes its own default (some, like the log folder, depend on it).
QJsonObject settings()
{
    QJsonObject values;
    const auto items = Orv::DefaultSettings::instance()->items();
    for (auto it = items.cbegin(); it != items.cend(); ++it) {
        const QString value = it.value()->value();
        values.insert(it.key(),
                      value == it.value()->defaultValue() ? QJsonValue() : QJsonValue(value));
    }
    return values;
}

QJsonObject exportedAccount(QJsonObject record, const std::optional<PassphraseSeal>& seal)
{
    const QString id = record.value(QLatin1String(Reply::ID)).toString();
    QJsonObject params = record.value(QLatin1String(Reply::DetailParams)).toObject();
    QString error;
    if (!AccountSecrets::open(&params, &error))
        throw QStringLiteral("Cannot open the secrets of the account \"%1\": %2")
            .arg(record.value(QLatin1String(Reply::DisplayName)).toString(), error);
    for (auto it = params.begin(); it != params.end();) {
        if (!AccountSecrets::isSecret(it.key()) || it.value().toString().isEmpty()) {
            ++it;
        } else if (!seal) {
            it = params.erase(it);
        } else {
            it.value() =
                seal->seal(it.value().toString(), ConfigTransfer::secretContext(id, it.key()));
            ++it;
        }
    }
    record.insert(QLatin1String(Reply::DetailParams), params);
    return record;
}

// The plan's password, taken out of it; the plan keeps everything else.
Secret takePassword(Base& plan)
{
    Secret taken;
    if (auto* backup = dynamic_cast<Orv::Info::Plan::Backup*>(&plan)) {
        taken = backup->encryption().passwordSecret();
        backup->encryption().setPasswordSecret({});
    } else if (auto* restore = dynamic_cast<Orv::Info::Plan::Restore*>(&plan)) {
        taken = restore->encryptionPasswordSecret();
        restore->setEncryptionPasswordSecret({});
    }
    return taken;
}

QJsonObject exportedPlan(const QJsonObject& row, const std::optional<PassphraseSeal>& seal)
{
    QString error;
    const auto plan = Orv::Info::Plan::Factory::create(
        row.value(QLatin1String(Info::PlanXml)).toString(), &error);
    if (!plan)
        throw QStringLiteral("Cannot read the plan \"%1\": %2")
            .arg(row.value(QLatin1String(Info::Name)).toString(), error);
    const Secret password = takePassword(*plan);
    if (password.isUnopened())
        throw QStringLiteral("Cannot open the password of the plan \"%1\" with this instance's key")
            .arg(plan->name());
    if (!seal) {
        if (auto* backup = dynamic_cast<Orv::Info::Plan::Backup*>(plan.data()))
            backup->encryption().setEnabled(false);
    }
    QJsonObject entry{{ConfigTransfer::PlanXml, plan->toXml(Base::SecretForm::Plain)}};
    if (seal && !password.isEmpty())
        entry.insert(ConfigTransfer::PlanPassword,
                     seal->seal(password.text(),
                                ConfigTransfer::secretContext(plan->id().toString(),
                                                              ConfigTransfer::PlanPassword)));
    return entry;
}

} // namespace

QString ConfigExport::write(const QString& path, const Options& options)
{
    try {
        std::optional<PassphraseSeal> seal;
        QJsonObject protection{{ConfigTransfer::ProtectionKind, ConfigTransfer::SecretsRemoved}};
        if (!options.removeSecrets) {
            QString error;
            seal = PassphraseSeal::create(options.passphrase, &error);
            if (!seal)
                return error;
            protection = seal->protection();
            protection.insert(ConfigTransfer::ProtectionKind, ConfigTransfer::SecretsSealed);
        }
        QJsonArray accounts;
        const QJsonArray records = m_accounts.records();
        for (const QJsonValue& record : records)
            accounts.append(exportedAccount(record.toObject(), seal));
        QJsonArray plans;
        const QJsonArray rows = m_plans.rows();
        for (const QJsonValue& row : rows) {
            if (options.excludedPlans.contains(
                    QUuid(row.toObject().value(QLatin1String(Info::ID)).toString())))
                continue;
            plans.append(exportedPlan(row.toObject(), seal));
        }
        const QJsonObject body{{ConfigTransfer::Protection, protection},
                               {ConfigTransfer::Settings, settings()},
                               {ConfigTransfer::Accounts, accounts},
                               {ConfigTransfer::Plans, plans}};
        const QString error = Kel::Core::AtomicFile::write(path, ConfigFile::encode(body));
        if (!error.isEmpty())
            return QStringLiteral("Cannot write the configuration to %1: %2").arg(path, error);
        qCInfo(lcService).noquote()
            << QStringLiteral("Configuration exported to %1: %2 accounts, %3 plans, secrets %4")
                   .arg(path)
                   .arg(accounts.size())
                   .arg(plans.size())
                   .arg(seal ? QStringLiteral("sealed") : QStringLiteral("removed"));
        return {};
    } catch (const QString& message) {
        return message;
    }
}

} // namespace Orv::Service
