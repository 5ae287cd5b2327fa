#include "service/channel/TypedResponder.h"

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/Frame.h"
#include "service/ServiceLog.h"

namespace Orv::Service {

namespace Communication = Orv::Common::Communication;
namespace Header = Communication::Commands::Format::Header;

class TypedResponder::State
{
public:
    State(ReplySink sink, const QString& name, const QJsonValue& id)
        : m_sink(std::move(sink)), m_name(echoedName(name)), m_id(echoedId(id))
    {
    }

    ~State()
    {
        if (!m_answered)
            send(TypedOutcome::failed(QStringLiteral("The service dropped the request")));
    }

    void send(const TypedOutcome& outcome)
    {
        if (m_answered)
            return;
        m_answered = true;
        if (outcome.status() == TypedOutcome::Command::Failed)
            qCWarning(lcRequest).noquote()
                << "Command" << m_name << "failed:" << boundedMessage(outcome.errorMessage());
        QByteArray frame = reply(outcome);
        if (frame.size() - Communication::kFrameHeaderSize >
            static_cast<qint64>(Communication::kMaxFrameSize)) {
            qCWarning(lcRequest).noquote() << "The answer to" << m_name << "is" << frame.size()
                                           << "bytes, more than a frame may hold";
            frame = reply(TypedOutcome::failed(
                QStringLiteral("The answer is larger than the channel allows")));
        }
        if (m_sink)
            m_sink(frame);
    }

    bool isAnswered() const { return m_answered; }
    QString name() const { return m_name; }

private:
    QByteArray reply(const TypedOutcome& outcome) const
    {
        const QJsonObject envelope{
            {QLatin1String(Header::Type::Key), QLatin1String(Header::Type::ReplyV2)},
            {QLatin1String(Header::Id), m_id},
            {QLatin1String(Header::Status::Key), outcome.status()},
            {QLatin1String(Header::ErrorMessage), boundedMessage(outcome.errorMessage())},
        };
        return outcome.response().frameWith(envelope, Header::TypedResponse);
    }

    ReplySink m_sink;
    QString m_name;
    QJsonValue m_id;
    bool m_answered = false;
};

TypedResponder::TypedResponder(ReplySink sink, const QString& name, const QJsonValue& id)
    : m_state(QSharedPointer<State>::create(std::move(sink), name, id))
{
}

void TypedResponder::answer(const TypedOutcome& outcome) const
{
    m_state->send(outcome);
}

bool TypedResponder::isAnswered() const
{
    return m_state->isAnswered();
}

QString TypedResponder::name() const
{
    return m_state->name();
}

} // namespace Orv::Service
