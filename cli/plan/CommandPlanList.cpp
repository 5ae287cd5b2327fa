#include "CommandPlanList.h"

#include "CommandChannel.h"
#include "Console.h"
#include "PlanObject.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/V2/PlanCommands.h"

namespace Orv::CLI {

using GetPlanList = Orv::Common::Communication::V2::Plan::GetPlanList;
using Orv::Info::Plan::PlanType;

CommandPlanList::CommandPlanList(QObject* parent)
    : CommandBase(QStringLiteral("list"), QStringLiteral("list all plan names and ids "), parent),
      m_backupOption(QStringLiteral("backup"), QStringLiteral("Lists existing backup plans")),
      m_restoreOption(QStringLiteral("restore"), QStringLiteral("Lists existing restore plans"))
{
    addOption(m_backupOption);
    addOption(m_restoreOption);
}

int CommandPlanList::process(const QStringList& words)
{
    const int parsed = execNoArgs(words);
    if (parsed != Started)
        return parsed;
    getPlanList();
    return Started;
}

// Both switches together ask for both kinds, which is every plan.
QString CommandPlanList::wantedType() const
{
    const bool backup = m_parser.isSet(m_backupOption);
    const bool restore = m_parser.isSet(m_restoreOption);
    if (backup == restore)
        return QString();
    return PlanType(backup ? PlanType::Backup : PlanType::Restore).toString();
}

void CommandPlanList::getPlanList()
{
    try {
        auto request = QSharedPointer<GetPlanList::Request>::create();
        request->setProfile(QString::fromLocal8Bit(qgetenv("USER")));
        // The listing shows no plan's settings.
        request->setWithoutPlanXml(true);
        CommandChannel::sendTyped(GetPlanList::CommandId, request, this,
                                  &CommandPlanList::onGetPlanListResult);
    } catch (const QString& message) {
        emit error(message);
    }
}

void CommandPlanList::onGetPlanListResult()
{
    QScopedPointer<CommandChannel::TypedCommand, QScopedPointerDeleteLater> command(
        qobject_cast<CommandChannel::TypedCommand*>(sender()));
    QSharedPointer<GetPlanList::Response> response;
    try {
        response = CommandChannel::typedResponse<GetPlanList::Response>(command.data(), this,
                                                                        [this] { getPlanList(); });
    } catch (const QString& message) {
        emit error(message);
        return;
    }
    if (!response)
        return;
    namespace Reply = Orv::Common::Communication::Commands::Format::Storage::GetConnection::Reply;
    for (const QJsonValue& file : response->damaged())
        warn(QStringLiteral("Warning: the plan file %1 was skipped: %2\n")
                 .arg(file[QLatin1String(Reply::DamagedFile)].toString().left(4096),
                      file[QLatin1String(Reply::DamagedReason)].toString().left(4096)));
    const QString type = wantedType();
    QString text =
        type.isEmpty() ? QStringLiteral("Plan list\n") : QStringLiteral("%1 plan list\n").arg(type);
    for (const QJsonValue& row : response->planList()) {
        auto plan = QSharedPointer<Orv::Info::PlanObject>::create(
            Orv::Info::PlanObject::fromRow(row.toObject()));
        if (type.isEmpty() || plan->typeName() == type)
            text += PlanObject(plan).shortInfo() + QLatin1Char('\n');
    }
    print(text);
    emit finished(Show);
}

} // namespace Orv::CLI
