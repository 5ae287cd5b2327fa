#include "orvCommon/Communication/ICommand.h"

#include "orvCommon/Communication/Connection.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/Manager.h"

#include <QJsonObject>

namespace Orv::Common::Communication {

namespace Header = Commands::Format::Header;

ICommand::ICommand(const QString& name, QObject* parent) : QObject(parent), m_name(name)
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &ICommand::handleTimeout);
}

ICommand::~ICommand()
{
    if (m_state == State::Waiting)
        if (Connection* connection = Manager::connectionIfAny())
            connection->forget(m_exchangeId);
}

void ICommand::exec()
{
    QPointer<Manager> manager = Manager::instance();
    m_state = State::Waiting;
    m_reply = {};
    m_errorString.clear();
    m_outcomeUnknown = false;
    if (!manager) {
        handleTransportError(QStringLiteral("Communication manager is not available"));
        return;
    }
    m_timer.start(m_timeoutMs > 0 ? m_timeoutMs : manager->defaultTimeout());
    manager->connection()->send(this);
}

bool ICommand::isReplyError() const
{
    return m_reply.object().value(QLatin1String(Header::Status::Key)).toString() ==
           QLatin1String(Header::Status::Value::Error);
}

QString ICommand::replyErrorString() const
{
    return m_reply.object().value(QLatin1String(Header::Status::ErrorString)).toString();
}

void ICommand::handleReply(const QJsonObject& reply)
{
    if (m_state != State::Waiting)
        return;
    m_reply = QJsonDocument(reply);
    end(State::Complete);
}

void ICommand::handleTransportError(const QString& reason, bool delivered)
{
    if (m_state != State::Waiting)
        return;
    m_errorString = reason;
    m_outcomeUnknown = delivered;
    end(State::Error);
}

void ICommand::handleTimeout()
{
    if (m_state != State::Waiting)
        return;
    if (Connection* connection = Manager::connectionIfAny())
        connection->forget(m_exchangeId);
    m_errorString = QStringLiteral("The backup service did not answer in time");
    end(State::Timeout);
}

void ICommand::end(State state)
{
    m_timer.stop();
    m_state = state;
    // Always through the event loop: a caller that connects a local loop
    // after exec() must still see the ending signal.
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

} // namespace Orv::Common::Communication
