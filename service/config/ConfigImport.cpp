#include "service/config/ConfigImport.h"

#include "kelCloud/Types.h"
#include "kelCore/AtomicFile.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/DefaultSettings.h"
#include "orvCommon/Installation.h"
#include "orvInfo/Plan/Backup.h"
#include "orvInfo/Plan/Factory.h"
#include "orvInfo/Plan/Restore.h"
#include "orvInfo/StorageAccountConfigFormat.h"
#include "service/ServiceLog.h"
#include "service/accounts/AccountCatalog.h"
#include "service/accounts/AccountSecrets.h"
#include "service/config/ConfigFile.h"
#include "service/config/ConfigTransfer.h"
#include "service/config/PassphraseSeal.h"
#include "service/plans/PlanCatalog.h"

#include <QDir>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QSet>
#include <QUuid>
#include <optional>

namespace Orv::Service {

namespace {

namespace Format = Orv::Common::Communication::Commands::Format;
namespace Reply = Format::Storage::GetConnection::Reply;
namespace Info = Format::Plan::DataType::Info;
namespace ImportReply = Format::Config::Import::Reply;
using Orv::Info::Plan::Base;
using PlanPointer = QSharedPointer<Base>;

QString accountLabel(const QJsonObject& record)
{
    return QStringLiteral("Account \"%1\" %2")
        .arg(record.value(QLatin1String(Reply::DisplayName)).toString(),
             record.value(QLatin1String(Reply::ID)).toString());
}

QString planLabel(const Base& plan)
{
    return QStringLiteral("Plan \"%1\" %2").arg(plan.name(), plan.id().toString());
}

std::optional<PassphraseSeal> sealOf(const QJsonObject& protection, const QString& passphrase)
{
    const QString kind = protection.value(ConfigTransfer::ProtectionKind).toString();
    if (kind == ConfigTransfer::SecretsRemoved)
        return std::nullopt;
    if (kind != ConfigTransfer::SecretsSealed)
        throw QStringLiteral("its secrets are protected in a way this version does not know");
    QString error;
    std::optional<PassphraseSeal> seal = PassphraseSeal::open(protection, passphrase, &error);
    if (!seal)
        throw error;
    return seal;
}

QString opened(const QString& sealed, const std::optional<PassphraseSeal>& seal,
               const QString& context)
{
    const std::optional<QString> plain = seal ? seal->unseal(sealed, context) : std::nullopt;
    if (!plain)
        throw QStringLiteral("a secret in it cannot be opened");
    return *plain;
}

// The record with its secrets in clear, as the account handler takes them.
QJsonObject readAccount(const QJsonValue& value, const std::optional<PassphraseSeal>& seal)
{
    QJsonObject record = value.toObject();
    const QString id = record.value(QLatin1String(Reply::ID)).toString();
    if (QUuid(id).isNull() ||
        Kel::Cloud::typeFromValue(record.value(QLatin1String(Reply::Type)).toInt()) ==
            Kel::Cloud::Type::Unknown ||
        record.value(QLatin1String(Reply::DisplayName)).toString().trimmed().isEmpty())
        throw QStringLiteral("an account in it has no ID, name or known type");
    QJsonObject params = record.value(QLatin1String(Reply::DetailParams)).toObject();
    for (auto it = params.begin(); it != params.end(); ++it) {
        if (AccountSecrets::isSecret(it.key()) && !it.value().toString().isEmpty())
            it.value() =
                opened(it.value().toString(), seal, ConfigTransfer::secretContext(id, it.key()));
    }
    record.insert(QLatin1String(Reply::DetailParams), params);
    return record;
}

PlanPointer readPlan(const QJsonValue& value, const std::optional<PassphraseSeal>& seal)
{
    const QJsonObject entry = value.toObject();
    QString error;
    PlanPointer plan =
        Orv::Info::Plan::Factory::create(entry.value(ConfigTransfer::PlanXml).toString(), &error);
    if (!plan)
        throw QStringLiteral("a plan in it cannot be read (%1)").arg(error);
    const QString sealed = entry.value(ConfigTransfer::PlanPassword).toString();
    if (sealed.isEmpty())
        return plan;
    const QString password =
        opened(sealed, seal,
               ConfigTransfer::secretContext(plan->id().toString(), ConfigTransfer::PlanPassword));
    if (auto* backup = dynamic_cast<Orv::Info::Plan::Backup*>(plan.data()))
        backup->encryption().setPassword(password);
    else if (auto* restore = dynamic_cast<Orv::Info::Plan::Restore*>(plan.data()))
        restore->setEncryptionPassword(password);
    return plan;
}

QJsonObject withPrefix(QJsonObject record, const QString& prefix)
{
    record.insert(QLatin1String(Reply::Prefix), prefix);
    QJsonObject params = record.value(QLatin1String(Reply::DetailParams)).toObject();
    params.insert(QLatin1String(Orv::Info::StorageAccountConfigFormat::BackupPrefix), prefix);
    record.insert(QLatin1String(Reply::DetailParams), params);
    return record;
}

// The catalogs' save() looks through every file of its folder for other
// copies of the item, so adding n items that way reads n * n / 2 files: half
// a minute for a thousand accounts and a thousand plans. An item whose ID no
// file holds (the callers check that against the catalog first) has no other
// copy, and goes straight to the file save() would write.
QString addFile(const QString& folder, const QUuid& id, const QString& extension,
                const QByteArray& contents)
{
    // Flushed all at once when the import ends: one flush per file made a
    // thousand items take seconds.
    return Kel::Core::AtomicFile::writeUnflushed(
        QDir(folder).filePath(id.toString(QUuid::WithoutBraces) + extension), contents);
}

} // namespace

QJsonObject ConfigImport::Report::toReply() const
{
    const auto failed = [](const Section& section) { return int(section.failures.size()); };
    const auto errors = [](const Section& section) { return section.failures.join('\n'); };
    return {{QLatin1String(ImportReply::Result), int(result)},
            {QLatin1String(ImportReply::Message), message},
            {QLatin1String(ImportReply::SettingsSize), settings.size},
            {QLatin1String(ImportReply::SettingsFailed), failed(settings)},
            {QLatin1String(ImportReply::SettingsError), errors(settings)},
            {QLatin1String(ImportReply::StorageSize), accounts.size},
            {QLatin1String(ImportReply::StorageFailed), failed(accounts)},
            {QLatin1String(ImportReply::StorageError), errors(accounts)},
            {QLatin1String(ImportReply::PlanSize), plans.size},
            {QLatin1String(ImportReply::PlanFailed), failed(plans)},
            {QLatin1String(ImportReply::PlanError), errors(plans)}};
}

ConfigImport::Report ConfigImport::run(const QString& path, const QString& passphrase,
                                       const QString& newPrefix)
{
    Report report;
    Contents contents;
    try {
        QString error;
        const std::optional<QJsonObject> body = ConfigFile::read(path, &error);
        if (!body)
            throw error;
        const std::optional<PassphraseSeal> seal =
            sealOf(body->value(ConfigTransfer::Protection).toObject(), passphrase);
        const QJsonValue settings = body->value(ConfigTransfer::Settings);
        if (!settings.isObject() || !body->value(ConfigTransfer::Accounts).isArray() ||
            !body->value(ConfigTransfer::Plans).isArray())
            throw QStringLiteral("it lacks its settings, accounts or plans");
        contents.settings = settings.toObject();
        for (const QJsonValue& account : body->value(ConfigTransfer::Accounts).toArray())
            contents.accounts.append(readAccount(account, seal));
        for (const QJsonValue& plan : body->value(ConfigTransfer::Plans).toArray())
            contents.plans.append(readPlan(plan, seal));
    } catch (const QString& reason) {
        report.message = QStringLiteral("Cannot import %1: %2").arg(path, reason);
        qCWarning(lcService).noquote() << report.message;
        return report;
    }

    QElapsedTimer clock;
    clock.start();
    importSettings(contents.settings, &report.settings);
    importAccounts(contents.accounts, newPrefix, &report.accounts);
    const qint64 accountsDone = clock.elapsed();
    importPlans(contents.plans, &report.plans);
    // The import is reported done only once it is on disk.
    for (const QString& folder : {m_accounts.folder(), m_plans.folder()}) {
        const QString flushError = Kel::Core::AtomicFile::syncFileSystem(folder);
        if (!flushError.isEmpty() && QDir(folder).exists())
            report.plans.failures.append(flushError);
    }
    const QStringList failures =
        report.settings.failures + report.accounts.failures + report.plans.failures;
    report.result = failures.isEmpty() ? Imported : Partial;
    if (!failures.isEmpty())
        report.message = QStringLiteral("Not everything in %1 was imported:\n%2\n")
                             .arg(path, failures.join(QLatin1Char('\n')));
    qCInfo(lcService).noquote()
        << QStringLiteral("Configuration imported from %1: %2 of %3 accounts, %4 of %5 plans "
                          "(settings and accounts %6 ms, plans %7 ms)")
               .arg(path)
               .arg(report.accounts.size - report.accounts.failures.size())
               .arg(report.accounts.size)
               .arg(report.plans.size - report.plans.failures.size())
               .arg(report.plans.size)
               .arg(accountsDone)
               .arg(clock.elapsed() - accountsDone);
    for (const QString& failure : failures)
        qCWarning(lcService).noquote() << "Not imported:" << failure;
    return report;
}

void ConfigImport::importSettings(const QJsonObject& values, Section* section) const
{
    section->size = values.size();
    const auto items = Orv::DefaultSettings::instance()->items();
    for (auto it = values.constBegin(); it != values.constEnd(); ++it) {
        Orv::DefaultSettings::Property* item = items.value(it.key());
        if (!item) {
            section->failures.append(
                QStringLiteral("Setting \"%1\": this version does not know it").arg(it.key()));
            continue;
        }
        const QString value = it.value().isNull() ? item->defaultValue() : it.value().toString();
        if (item->value() != value && !item->setValue(value))
            section->failures.append(
                QStringLiteral("Setting \"%1\": the settings file cannot be written")
                    .arg(it.key()));
    }
}

void ConfigImport::importAccounts(const QList<QJsonObject>& records, const QString& newPrefix,
                                  Section* section)
{
    section->size = records.size();
    QSet<QUuid> ids;
    QSet<QString> names;
    for (const QJsonValue& value : m_accounts.records()) {
        ids.insert(QUuid(value[QLatin1String(Reply::ID)].toString()));
        names.insert(value[QLatin1String(Reply::DisplayName)].toString());
    }
    const bool managed = !SHARED::defines::common::is_standalone();
    for (const QJsonObject& original : records) {
        QJsonObject record = newPrefix.isEmpty() ? original : withPrefix(original, newPrefix);
        const QUuid id(record.value(QLatin1String(Reply::ID)).toString());
        const QString name = record.value(QLatin1String(Reply::DisplayName)).toString();
        const auto fail = [&](const QString& reason) {
            section->failures.append(accountLabel(record) + QStringLiteral(": ") + reason);
        };
        if (ids.contains(id)) {
            fail(QStringLiteral("an account with this ID is already here; it is left as it is"));
            continue;
        }
        if (names.contains(name)) {
            fail(QStringLiteral("an account with this name is already here; it is left as it is"));
            continue;
        }
        if (managed &&
            Kel::Cloud::typeFromValue(record.value(QLatin1String(Reply::Type)).toInt()) !=
                Kel::Cloud::Type::FileSystem) {
            fail(QStringLiteral("only file system accounts can be saved on a managed client"));
            continue;
        }
        QJsonObject params = record.value(QLatin1String(Reply::DetailParams)).toObject();
        QString error;
        if (!AccountSecrets::seal(&params, {}, &error)) {
            fail(QStringLiteral("its secrets cannot be protected: ") + error);
            continue;
        }
        record.insert(QLatin1String(Reply::DetailParams), params);
        error = addFile(m_accounts.folder(), id, QStringLiteral(".json"),
                        QJsonDocument(record).toJson(QJsonDocument::Indented));
        if (!error.isEmpty()) {
            fail(QStringLiteral("it cannot be saved: ") + error);
            continue;
        }
        ids.insert(id);
        names.insert(name);
    }
}

void ConfigImport::importPlans(const QList<PlanPointer>& plans, Section* section)
{
    section->size = plans.size();
    QSet<QUuid> accounts;
    for (const QJsonValue& value : m_accounts.records())
        accounts.insert(QUuid(value[QLatin1String(Reply::ID)].toString()));
    QSet<QUuid> ids;
    QSet<QString> names;
    for (const QJsonValue& row : m_plans.rows()) {
        ids.insert(QUuid(row[QLatin1String(Info::ID)].toString()));
        names.insert(row[QLatin1String(Info::Name)].toString());
    }
    for (const PlanPointer& plan : plans) {
        const auto fail = [&](const QString& reason) {
            section->failures.append(planLabel(*plan) + QStringLiteral(": ") + reason);
        };
        if (ids.contains(plan->id())) {
            fail(QStringLiteral("a plan with this ID is already here; it is left as it is"));
            continue;
        }
        if (names.contains(plan->name())) {
            fail(QStringLiteral("a plan with this name is already here; it is left as it is"));
            continue;
        }
        if (!accounts.contains(plan->storage())) {
            fail(QStringLiteral("its storage account %1 is not on this instance")
                     .arg(plan->storage().toString()));
            continue;
        }
        QString error;
        const QString xml = plan->toXml(Base::SecretForm::Sealed, &error);
        if (!xml.isEmpty())
            error = addFile(m_plans.folder(), plan->id(), QStringLiteral(".xml"), xml.toUtf8());
        else if (error.isEmpty())
            error = QStringLiteral("the plan cannot be written");
        if (!error.isEmpty()) {
            fail(QStringLiteral("it cannot be saved: ") + error);
            continue;
        }
        ids.insert(plan->id());
        names.insert(plan->name());
    }
}

} // namespace Orv::Service
