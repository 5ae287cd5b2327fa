#include "orvCommon/Communication/V2Command.h"

#include "orvCommon/Communication/Connection.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/Manager.h"

namespace Orv::Common::Communication::V2 {

namespace Header = Commands::Format::Header;

Command::Command(const QUuid& commandId, const QString& name, QObject* parent)
    : QObject(parent), m_commandId(commandId), m_name(name)
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &Command::handleTimeout);
}

Command::~Command()
{
    if (m_state == State::Waiting)
        if (Connection* connection = Manager::connectionIfAny())
            connection->forget(m_exchangeId);
}

void Command::exec()
{
    QPointer<Manager> manager = Manager::instance();
    m_state = State::Waiting;
    m_status = None;
    m_errorMessage.clear();
    m_outcomeUnknown = false;
    m_response.reset();
    if (!manager) {
        handleTransportError(QStringLiteral("Communication manager is not available"));
        return;
    }
    m_timer.start(m_timeoutMs > 0 ? m_timeoutMs : manager->defaultTimeout());
    manager->connection()->send(this);
}

void Command::handleReply(const QJsonObject& reply)
{
    if (m_state != State::Waiting)
        return;
    m_status = reply.value(QLatin1String(Header::Status::Key)).toInt(None);
    m_errorMessage = reply.value(QLatin1String(Header::ErrorMessage)).toString();
    if (m_status == Done) {
        QSharedPointer<Response> response = createResponse();
        if (response && response->fromJson(
                            reply.value(QLatin1String(Header::TypedResponse)).toObject()))
            m_response = response;
    }
    end(State::Complete);
}

void Command::handleTransportError(const QString& reason, bool delivered)
{
    if (m_state != State::Waiting)
        return;
    m_outcomeUnknown = delivered;
    // A command that could not be delivered has failed; its reason is what the
    // administrator needs to read.
    m_status = Failed;
    m_errorMessage = reason;
    end(State::Error);
}

void Command::handleTimeout()
{
    if (m_state != State::Waiting)
        return;
    if (Connection* connection = Manager::connectionIfAny())
        connection->forget(m_exchangeId);
    m_status = Failed;
    m_errorMessage = QStringLiteral("The backup service did not answer in time");
    end(State::Timeout);
}

void Command::end(State state)
{
    m_timer.stop();
    m_state = state;
    QMetaObject::invokeMethod(
        this,
        [this, state] {
            if (state == State::Complete)
                emit complite();
            else if (state == State::Timeout)
                emit timeout();
            else
                emit error();
        },
        Qt::QueuedConnection);
}

} // namespace Orv::Common::Communication::V2
