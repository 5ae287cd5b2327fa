#include "CommandPlanDetailInfo.h"

#include "Console.h"
#include "PlanInfo.h"
#include "PlanObject.h"
#include "account/AccountList.h"
#include "orvCommon/Communication/Format.h"
#include "orvInfo/Plan/Factory.h"

namespace Orv::CLI {

namespace Reply = Orv::Common::Communication::Commands::Format::Storage::GetConnection::Reply;

CommandPlanDetailInfo::CommandPlanDetailInfo(QObject* parent)
    : CommandExistingPlanBase(QStringLiteral("details"), QStringLiteral("get plan details"),
                              QStringLiteral("Plan ID"), false, parent),
      m_progressOption(QStringLiteral("progress"), QStringLiteral("Add progress info to details"))
{
    addOption(m_progressOption);
}

void CommandPlanDetailInfo::planFound(const QSharedPointer<Orv::Info::PlanObject>& plan)
{
    m_plan = plan;
    auto* accounts = new AccountList(this);
    connect(accounts, &AccountList::finished, this, &CommandPlanDetailInfo::onGetAccountListResult);
    connect(accounts, &AccountList::error, this, &CommandPlanDetailInfo::error);
    accounts->exec();
}

void CommandPlanDetailInfo::onGetAccountListResult()
{
    const QJsonArray accounts = qobject_cast<AccountList*>(sender())->accountList();
    PlanObject row(m_plan);
    row.setShowProgress(m_parser.isSet(m_progressOption));
    try {
        print(row.detailedInfo() + QLatin1Char('\n') + summary(accounts));
    } catch (const QString& message) {
        print(row.detailedInfo());
        emit error(message);
        return;
    }
    emit finished(Show);
}

QString CommandPlanDetailInfo::summary(const QJsonArray& accounts) const
{
    QString reason;
    const QSharedPointer<PlanInfo> info =
        PlanInfo::create(Orv::Info::Plan::Factory::create(m_plan->planXml(), &reason));
    if (!info)
        throw QStringLiteral("Cannot read the plan: %1\n").arg(reason);
    for (const QJsonValue& value : accounts) {
        const QJsonObject account = value.toObject();
        const QUuid id(account.value(QLatin1String(Reply::ID)).toString());
        if (id.isNull() || id != m_plan->storage())
            continue;
        info->setDestination(
            account.value(QLatin1String(Reply::DisplayName)).toString(),
            Kel::Cloud::typeFromValue(account.value(QLatin1String(Reply::Type)).toInt()));
        break;
    }
    return info->summary();
}

} // namespace Orv::CLI
