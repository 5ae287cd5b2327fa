#include "service/channel/NamedResponder.h"

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/Frame.h"
#include "service/ServiceLog.h"

namespace Orv::Service {

namespace Communication = Orv::Common::Communication;
namespace Header = Communication::Commands::Format::Header;

class NamedResponder::State
{
public:
    State(ReplySink sink, const QString& command, const QJsonValue& id, const QString& sessionId)
        : m_sink(std::move(sink)), m_command(echoedName(command)), m_id(echoedId(id)),
          m_sessionId(echoedName(sessionId))
    {
    }

    ~State()
    {
        if (!m_answered)
            send(NamedOutcome::failure(QStringLiteral("The service dropped the request")));
    }

    void send(const NamedOutcome& outcome)
    {
        if (m_answered)
            return;
        m_answered = true;
        if (!outcome.isSuccess())
            qCWarning(lcRequest).noquote()
                << "Command" << m_command << "failed:" << boundedMessage(outcome.errorString());
        QByteArray frame = reply(outcome);
        if (frame.size() - Communication::kFrameHeaderSize >
            static_cast<qint64>(Communication::kMaxFrameSize)) {
            qCWarning(lcRequest).noquote() << "The answer to" << m_command << "is" << frame.size()
                                           << "bytes, more than a frame may hold";
            frame = reply(NamedOutcome::failure(
                QStringLiteral("The answer is larger than the channel allows")));
        }
        if (m_sink)
            m_sink(frame);
    }

    bool isAnswered() const { return m_answered; }
    QString command() const { return m_command; }

private:
    QByteArray reply(const NamedOutcome& outcome) const
    {
        const QJsonObject envelope{
            {QLatin1String(Header::Type::Key), QLatin1String(Header::Type::Reply)},
            {QLatin1String(Header::Command), m_command},
            {QLatin1String(Header::Id), m_id},
            {QLatin1String(Header::SessionId), m_sessionId},
            {QLatin1String(Header::Status::Key),
             QLatin1String(outcome.isSuccess() ? Header::Status::Value::Success
                                               : Header::Status::Value::Error)},
            {QLatin1String(Header::Status::ErrorString), boundedMessage(outcome.errorString())},
        };
        return outcome.data().frameWith(envelope, Header::Data);
    }

    ReplySink m_sink;
    QString m_command;
    QJsonValue m_id;
    QString m_sessionId;
    bool m_answered = false;
};

NamedResponder::NamedResponder(ReplySink sink, const QString& command, const QJsonValue& id,
                               const QString& sessionId)
    : m_state(QSharedPointer<State>::create(std::move(sink), command, id, sessionId))
{
}

void NamedResponder::answer(const NamedOutcome& outcome) const
{
    m_state->send(outcome);
}

bool NamedResponder::isAnswered() const
{
    return m_state->isAnswered();
}

QString NamedResponder::command() const
{
    return m_state->command();
}

} // namespace Orv::Service
