#pragma once

#include <QJsonDocument>
#include <QObject>
#include <QTimer>

namespace Orv::Common::Communication {

class Connection;

// A named command: a JSON request sent under a command name, answered with a
// JSON reply. Exactly one of complite(), error() or timeout() ends each
// exchange, always delivered through the event loop (never from inside exec()).
class ICommand : public QObject
{
    Q_OBJECT
public:
    explicit ICommand(const QString& name, QObject* parent = nullptr);
    ~ICommand() override;

    QString name() const { return m_name; }
    // The request: an object whose "params" member holds the command's fields.
    // The header members are filled in by the library when the request is sent.
    void setRequest(const QJsonDocument& request) { m_request = request; }
    QJsonDocument request() const { return m_request; }
    void setTimeout(int milliseconds) { m_timeoutMs = milliseconds; }
    int timeoutMs() const { return m_timeoutMs; }

    void exec();

    bool isComplite() const { return m_state == State::Complete; }
    bool isError() const { return m_state == State::Error; }
    bool isTimeout() const { return m_state == State::Timeout; }
    // Why the exchange failed in transport (service not running, time-out).
    QString errorString() const { return m_errorString; }
    // The exchange ended in error after the request had been handed to the
    // service: it may or may not have been carried out.
    bool isOutcomeUnknown() const { return m_outcomeUnknown; }

    QJsonDocument reply() const { return m_reply; }
    bool isReplyError() const;
    QString replyErrorString() const;

signals:
    void complite();
    void error();
    void timeout();

private:
    friend class Connection;
    enum class State { Idle, Waiting, Complete, Error, Timeout };
    void handleReply(const QJsonObject& reply);
    void handleTransportError(const QString& reason, bool delivered = false);
    void handleTimeout();
    void end(State state);

    QString m_name;
    QString m_exchangeId;
    QJsonDocument m_request;
    QJsonDocument m_reply;
    QString m_errorString;
    bool m_outcomeUnknown = false;
    State m_state = State::Idle;
    int m_timeoutMs = 0;
    QTimer m_timer;
};

} // namespace Orv::Common::Communication
