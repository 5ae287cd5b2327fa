#include "LoadPlanObject.h"

#include "CommandChannel.h"
#include "orvCommon/Communication/V2/PlanCommands.h"

#include <QEventLoop>
#include <QJsonArray>

namespace Orv::CLI {

using GetPlanList = Orv::Common::Communication::V2::Plan::GetPlanList;

const QString LoadPlanObject::kSameNames =
    QStringLiteral("We have two or more plans with the same names. Please use the plan id.\n");

namespace {

const QString kWrongForm = QStringLiteral("Internal error: invalid command response format");
const QString kFailed = QStringLiteral("Internal error.\n");

} // namespace

LoadPlanObject::LoadPlanObject(const QUuid& id, QObject* parent)
    : QObject(parent), m_type(Type::Id), m_id(id)
{
}

LoadPlanObject::LoadPlanObject(const QString& name, QObject* parent)
    : QObject(parent), m_type(Type::Name), m_name(name)
{
}

LoadPlanObject::LoadPlanObject(const QVariant& value, Type type, QObject* parent)
    : QObject(parent), m_type(type)
{
    if (type == Type::Id)
        m_id = value.canConvert<QUuid>() ? value.toUuid() : QUuid(value.toString().trimmed());
    else
        m_name = value.toString();
}

bool LoadPlanObject::exec()
{
    m_plan.reset();
    m_chosen = QUuid();
    m_sameNames = false;
    m_errorString.clear();
    try {
        send();
        return true;
    } catch (const QString& message) {
        fail(message);
        return false;
    }
}

bool LoadPlanObject::execAndWait()
{
    QEventLoop loop;
    connect(this, &LoadPlanObject::finished, &loop, &QEventLoop::quit);
    connect(this, &LoadPlanObject::error, &loop, &QEventLoop::quit);
    if (!exec())
        return false;
    loop.exec();
    return !m_plan.isNull();
}

void LoadPlanObject::send()
{
    auto request = QSharedPointer<GetPlanList::Request>::create();
    request->setProfile(QString::fromLocal8Bit(qgetenv("USER")));
    request->setWithoutPlanXml(m_chosen.isNull());
    request->setPlanId(m_chosen);
    CommandChannel::sendTyped(GetPlanList::CommandId, request, this,
                              &LoadPlanObject::onGetPlanListResult);
}

void LoadPlanObject::onGetPlanListResult()
{
    QScopedPointer<CommandChannel::TypedCommand, QScopedPointerDeleteLater> command(
        qobject_cast<CommandChannel::TypedCommand*>(sender()));
    try {
        switch (command->status()) {
        case CommandChannel::TypedCommand::Done:
            break;
        case CommandChannel::TypedCommand::Failed:
            throw command->errorMessage();
        case CommandChannel::TypedCommand::TryLater:
            qCWarning(lcChannelCli).noquote() << CommandChannel::kRetryWarning;
            QTimer::singleShot(Orv::Common::Communication::retryDelayMs(), this, [this] {
                try {
                    send();
                } catch (const QString& message) {
                    fail(message);
                }
            });
            return;
        default:
            throw kFailed;
        }
        const auto response = command->response().dynamicCast<GetPlanList::Response>();
        if (!response)
            throw kWrongForm;
        pick(response->planList());
    } catch (const QString& message) {
        fail(message);
    }
}

void LoadPlanObject::pick(const QJsonArray& plans)
{
    if (!m_chosen.isNull()) {
        for (const QJsonValue& value : plans) {
            auto plan = QSharedPointer<Orv::Info::PlanObject>::create(
                Orv::Info::PlanObject::fromRow(value.toObject()));
            if (plan->id() != m_chosen)
                continue;
            m_plan = plan;
            emit finished();
            return;
        }
        // Removed between the two requests.
        fail(QStringLiteral("Unknown plan ID: ") + m_chosen.toString());
        return;
    }
    QSharedPointer<Orv::Info::PlanObject> found;
    int matches = 0;
    for (const QJsonValue& value : plans) {
        auto plan = QSharedPointer<Orv::Info::PlanObject>::create(
            Orv::Info::PlanObject::fromRow(value.toObject()));
        const bool match = m_type == Type::Id ? !plan->id().isNull() && plan->id() == m_id
                                              : plan->displayName() == m_name;
        if (!match)
            continue;
        if (!found)
            found = plan;
        ++matches;
    }
    if (!found) {
        fail(m_type == Type::Id ? QStringLiteral("Unknown plan ID: ") + m_id.toString()
                                : QStringLiteral("Unknown plan name: ") + m_name);
        return;
    }
    if (m_type == Type::Name && matches > 1) {
        m_sameNames = true;
        fail(kSameNames);
        return;
    }
    m_chosen = found->id();
    send();
}

void LoadPlanObject::fail(const QString& message)
{
    m_errorString = message;
    emit error(message);
}

} // namespace Orv::CLI
