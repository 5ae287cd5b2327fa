#pragma once

#include <QJsonObject>
#include <QObject>
#include <QSharedPointer>
#include <QTimer>
#include <QUuid>

namespace Orv::Common::Communication {
class Connection;
}

namespace Orv::Common::Communication::V2 {

// A typed command: a request object sent under a fixed command identifier and
// answered with an integer status, an error message and a typed response.
// Exactly one of complite(), error() or timeout() ends each exchange, always
// delivered through the event loop (never from inside exec()).
class Command : public QObject
{
    Q_OBJECT
public:
    class Request
    {
    public:
        virtual ~Request() = default;
        virtual QJsonObject toJson() const = 0;
        // Returns false when the object does not have this request's form.
        virtual bool fromJson(const QJsonObject& object) = 0;
    };

    class Response
    {
    public:
        virtual ~Response() = default;
        virtual QJsonObject toJson() const = 0;
        virtual bool fromJson(const QJsonObject& object) = 0;
    };

    enum Status { None = 0, Done = 2, Failed = 3, TryLater = 5 };

    Command(const QUuid& commandId, const QString& name, QObject* parent = nullptr);
    ~Command() override;

    QUuid commandId() const { return m_commandId; }
    QString name() const { return m_name; }
    void setRequest(QSharedPointer<Request> request) { m_request = std::move(request); }
    QSharedPointer<Request> request() const { return m_request; }
    void setTimeout(int milliseconds) { m_timeoutMs = milliseconds; }
    int timeoutMs() const { return m_timeoutMs; }

    // Sends the request and returns at once.
    void exec();

    int status() const { return m_status; }
    QString errorMessage() const { return m_errorMessage; }
    bool isComplite() const { return m_state == State::Complete; }
    bool isError() const { return m_state == State::Error; }
    bool isTimeout() const { return m_state == State::Timeout; }
    // The exchange ended in error after the request had been handed to the
    // service: it may or may not have been carried out.
    bool isOutcomeUnknown() const { return m_outcomeUnknown; }
    // The typed response, or null when none arrived or it had the wrong form.
    virtual QSharedPointer<Response> response() const { return m_response; }

    // Builds an empty request and response of this command's types; the
    // service uses them to decode requests and encode answers.
    virtual QSharedPointer<Request> createRequest() const = 0;
    virtual QSharedPointer<Response> createResponse() const = 0;

signals:
    void complite();
    void error();
    void timeout();

private:
    friend class Orv::Common::Communication::Connection;
    enum class State { Idle, Waiting, Complete, Error, Timeout };
    void handleReply(const QJsonObject& reply);
    void handleTransportError(const QString& reason, bool delivered = false);
    void handleTimeout();
    void end(State state);

    QUuid m_commandId;
    QString m_name;
    QString m_exchangeId;
    QSharedPointer<Request> m_request;
    QSharedPointer<Response> m_response;
    int m_status = None;
    QString m_errorMessage;
    State m_state = State::Idle;
    bool m_outcomeUnknown = false;
    int m_timeoutMs = 0;
    QTimer m_timer;
};

// Ties a command class to its request and response classes.
template <typename RequestT, typename ResponseT> class TypedCommand : public Command
{
public:
    using Command::Command;
    QSharedPointer<Request> createRequest() const override
    {
        return QSharedPointer<RequestT>::create();
    }
    QSharedPointer<Response> createResponse() const override
    {
        return QSharedPointer<ResponseT>::create();
    }
};

} // namespace Orv::Common::Communication::V2
