#include "CommandExistingPlanBase.h"

#include "CommandChannel.h"
#include "LoadPlanObject.h"
#include "orvCommon/Communication/V2/PlanCommands.h"

namespace Orv::CLI {

CommandExistingPlanBase::CommandExistingPlanBase(const QString& name, const QString& description,
                                                 const QString& idDescription, bool refuseBoth,
                                                 QObject* parent)
    : CommandBase(name, description, parent),
      m_idOption(QStringLiteral("id"), idDescription, QStringLiteral("planId")),
      m_nameOption(QStringLiteral("name"), QStringLiteral("Plan name"), QStringLiteral("planName")),
      m_refuseBoth(refuseBoth)
{
    addOption(m_idOption, true);
    addOption(m_nameOption, true);
}

int CommandExistingPlanBase::process(const QStringList& words)
{
    const int parsed = exec(words);
    if (parsed != Started)
        return parsed;
    try {
        findPlan();
    } catch (const QString& message) {
        emit error(message);
    }
    return Started;
}

void CommandExistingPlanBase::findPlan()
{
    const bool byId = m_parser.isSet(m_idOption);
    const bool byName = m_parser.isSet(m_nameOption);
    if (!byId && !byName)
        throw QStringLiteral("Options [ id ] or [ name ] is mandatory");
    if (byId && byName && m_refuseBoth)
        throw QStringLiteral("Parameter conflict: [ id ] and [ name ]");
    LoadPlanObject* load = nullptr;
    if (byId) {
        const QString text = m_parser.value(m_idOption).trimmed();
        const QUuid id(text);
        if (id.isNull())
            throw QStringLiteral("Invalid format data for ID: ") + text;
        load = new LoadPlanObject(id, this);
    } else {
        load = new LoadPlanObject(m_parser.value(m_nameOption).trimmed(), this);
    }
    connect(load, &LoadPlanObject::finished, this,
            &CommandExistingPlanBase::onLoadPlanObjectResult);
    connect(load, &LoadPlanObject::error, this, &CommandExistingPlanBase::onLoadPlanObjectResult);
    load->exec();
}

void CommandExistingPlanBase::onLoadPlanObjectResult()
{
    auto* load = qobject_cast<LoadPlanObject*>(sender());
    load->deleteLater();
    try {
        const QSharedPointer<Orv::Info::PlanObject> plan = load->planObject();
        if (!plan)
            throw load->errorString();
        planFound(plan);
    } catch (const QString& message) {
        emit error(message);
    }
}

void CommandExistingPlanBase::finishOnTypedResult(const std::function<void()>& resend)
{
    using EmptyResponse = Orv::Common::Communication::V2::Plan::EmptyResponse;
    QScopedPointer<CommandChannel::TypedCommand, QScopedPointerDeleteLater> command(
        qobject_cast<CommandChannel::TypedCommand*>(sender()));
    try {
        if (!CommandChannel::typedResponse<EmptyResponse>(command.data(), this, resend))
            return;
    } catch (const QString& message) {
        emit error(message);
        return;
    }
    emit finished(Show);
}

} // namespace Orv::CLI
