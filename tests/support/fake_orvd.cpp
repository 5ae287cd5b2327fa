// A stand-in for orvd that misbehaves on purpose, for the faults the real
// service cannot be made to produce. It listens on --socket and answers every
// request according to --mode:
//
//   reply            correct answers to PlanGetList, StorageGetConnection and
//                    GetPlanList (each plan row is named after the request's
//                    profile); pushes one notification to a client that
//                    subscribes.
//   late             like reply, but holds an answer back until the next
//                    request arrives on the same connection, then sends both
//   malformed        a frame whose body is not JSON
//   array            a frame whose body is a JSON array
//   non-object       a named reply whose "data" is an array; a typed reply with
//                    status 2 whose response lacks its plan list
//   failed           named: status "error" with --message; typed: status 3 with
//                    --message
//   retry            typed: status 5 for the first --retries requests, then a
//                    correct answer; named: correct answers
//   silent           reads everything, answers nothing
//   oversize         announces a frame of more than 16 MiB, then stalls
//   close-mid-frame  sends half a frame and closes the connection
//   close-on-change  like reply for the plan and account lists and storage
//                    checks (which all pass); any other request is read and
//                    the connection closed unanswered
//
// --record FILE appends every message received, one JSON object a line.
// Prints "listening" on stdout once it accepts connections. It ends on SIGTERM,
// when its parent dies, or after --max-seconds (60 by default).

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/Frame.h"
#include "orvCommon/Communication/NotificationTypes.h"
#include "orvCommon/Communication/V2/PlanCommands.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalServer>
#include <QLocalSocket>
#include <QTimer>
#include <QtEndian>
#include <cstdio>
#include <signal.h>
#include <sys/prctl.h>

namespace {

namespace Channel = Orv::Common::Communication;
namespace Format = Channel::Commands::Format;
namespace Header = Format::Header;
using Channel::FrameReader;

const QStringList kModes = {
    QStringLiteral("reply"),           QStringLiteral("late"),
    QStringLiteral("malformed"),       QStringLiteral("array"),
    QStringLiteral("non-object"),      QStringLiteral("failed"),
    QStringLiteral("retry"),           QStringLiteral("silent"),
    QStringLiteral("oversize"),        QStringLiteral("close-mid-frame"),
    QStringLiteral("close-on-change"),
};

QString key(const char* text)
{
    return QLatin1String(text);
}

QByteArray rawFrame(quint32 announced, const QByteArray& body)
{
    QByteArray frame(Channel::kFrameHeaderSize, Qt::Uninitialized);
    qToBigEndian<quint32>(announced, frame.data());
    return frame + body;
}

struct Options
{
    QString mode;
    QString message;
    int retries = 0;
    QString record;
};

class FakeService : public QObject
{
public:
    explicit FakeService(const Options& options) : m_options(options), m_tryLater(options.retries)
    {
        connect(&m_server, &QLocalServer::newConnection, this, &FakeService::onNewConnection);
    }

    bool listen(const QString& socketPath)
    {
        QLocalServer::removeServer(socketPath);
        if (!m_server.listen(socketPath)) {
            std::fprintf(stderr, "fake_orvd: cannot listen on %s: %s\n", qPrintable(socketPath),
                         qPrintable(m_server.errorString()));
            return false;
        }
        return true;
    }

private:
    void onNewConnection()
    {
        while (QLocalSocket* socket = m_server.nextPendingConnection()) {
            connect(socket, &QLocalSocket::readyRead, this,
                    [this, socket] { onReadyRead(socket); });
            connect(socket, &QLocalSocket::disconnected, this, [this, socket] {
                m_readers.remove(socket);
                m_held.remove(socket);
                socket->deleteLater();
            });
        }
    }

    void onReadyRead(QLocalSocket* socket)
    {
        FrameReader& reader = m_readers[socket];
        reader.append(socket->readAll());
        for (;;) {
            QJsonObject message;
            switch (reader.next(&message)) {
            case FrameReader::Result::NeedMore:
                return;
            case FrameReader::Result::TooLarge:
            case FrameReader::Result::Malformed:
                socket->abort();
                return;
            case FrameReader::Result::Frame:
                record(message);
                handle(socket, message);
                if (socket->state() != QLocalSocket::ConnectedState)
                    return;
                break;
            }
        }
    }

    void record(const QJsonObject& message)
    {
        if (m_options.record.isEmpty())
            return;
        QFile file(m_options.record);
        if (file.open(QIODevice::WriteOnly | QIODevice::Append))
            file.write(QJsonDocument(message).toJson(QJsonDocument::Compact) + '\n');
    }

    void handle(QLocalSocket* socket, const QJsonObject& message)
    {
        const QString type = message.value(key(Header::Type::Key)).toString();
        if (type == key(Header::Type::Subscribe)) {
            if (m_options.mode == QLatin1String("reply"))
                socket->write(encodeNotification());
            return;
        }
        if (type != key(Header::Type::Request) && type != key(Header::Type::RequestV2))
            return;

        const QString& mode = m_options.mode;
        if (mode == QLatin1String("silent"))
            return;
        if (mode == QLatin1String("malformed")) {
            send(socket, rawFrame(9, "{\"type\":\""));
        } else if (mode == QLatin1String("array")) {
            send(socket, rawFrame(7, "[1,2,3]"));
        } else if (mode == QLatin1String("oversize")) {
            send(socket, rawFrame(Channel::kMaxFrameSize + 1, "{\"type\":"));
        } else if (mode == QLatin1String("close-on-change") && !isListing(message)) {
            socket->disconnectFromServer();
        } else if (mode == QLatin1String("close-mid-frame")) {
            send(socket, rawFrame(64, "{\"type\":\"reply\",\"id\":"));
            socket->flush();
            socket->disconnectFromServer();
        } else if (type == key(Header::Type::Request)) {
            send(socket, Channel::encodeFrame(namedReply(message)));
        } else {
            send(socket, Channel::encodeFrame(typedReply(message)));
        }
    }

    static bool isListing(const QJsonObject& request)
    {
        const QString command = request.value(key(Header::Command)).toString();
        return command == key(Format::Plan::GetList::Name) ||
               command == key(Format::Storage::GetConnection::Name) ||
               command == key(Format::Storage::Check::Name) ||
               QUuid(request.value(key(Header::CommandId)).toString()) ==
                   Channel::V2::Plan::GetPlanList::CommandId;
    }

    void send(QLocalSocket* socket, const QByteArray& bytes)
    {
        if (m_options.mode != QLatin1String("late")) {
            socket->write(bytes);
            return;
        }
        if (!m_held.contains(socket)) {
            m_held.insert(socket, bytes);
            return;
        }
        socket->write(m_held.take(socket) + bytes);
    }

    static QJsonArray planRows(const QString& profile)
    {
        return {QJsonObject{
            {key(Format::Plan::DataType::Info::ID),
             QStringLiteral("{0f6b2c1e-7d4a-4e59-8c3b-2a9d5e7f1b60}")},
            {key(Format::Plan::DataType::Info::Name), profile},
        }};
    }

    QJsonObject namedReply(const QJsonObject& request) const
    {
        const QString command = request.value(key(Header::Command)).toString();
        const QJsonObject params = request.value(key(Header::Params)).toObject();
        QJsonObject reply{
            {key(Header::Type::Key), key(Header::Type::Reply)},
            {key(Header::Command), command},
            {key(Header::Id), request.value(key(Header::Id))},
            {key(Header::SessionId), request.value(key(Header::SessionId))},
            {key(Header::Status::Key), key(Header::Status::Value::Success)},
            {key(Header::Status::ErrorString), QString()},
        };
        QJsonValue data;
        if (m_options.mode == QLatin1String("failed")) {
            reply.insert(key(Header::Status::Key), key(Header::Status::Value::Error));
            reply.insert(key(Header::Status::ErrorString), m_options.message);
            data = QJsonObject();
        } else if (m_options.mode == QLatin1String("non-object")) {
            data = QJsonArray{1, 2, 3};
        } else if (command == key(Format::Plan::GetList::Name)) {
            const QString profile =
                params.value(key(Format::Plan::GetList::Request::Profile)).toString();
            data = QJsonObject{{key(Format::Plan::GetList::Reply::Key), planRows(profile)}};
        } else if (command == key(Format::Storage::GetConnection::Name)) {
            data = QJsonObject{{key(Format::Storage::GetConnection::Reply::Key), QJsonArray()}};
        } else if (command == key(Format::Storage::Check::Name)) {
            // Every storage passes its check.
            data = QJsonObject{{key(Format::Storage::Check::Reply::Outcome),
                                QJsonObject{{"error", "None"}, {"result", QJsonArray()}}}};
        } else {
            reply.insert(key(Header::Status::Key), key(Header::Status::Value::Error));
            reply.insert(key(Header::Status::ErrorString), QStringLiteral("Unknown command"));
            data = QJsonObject();
        }
        reply.insert(key(Header::Data), data);
        return reply;
    }

    QJsonObject typedReply(const QJsonObject& request)
    {
        using GetPlanList = Channel::V2::Plan::GetPlanList;
        QJsonObject reply{
            {key(Header::Type::Key), key(Header::Type::ReplyV2)},
            {key(Header::Id), request.value(key(Header::Id))},
            {key(Header::SessionId), request.value(key(Header::SessionId))},
            {key(Header::ErrorMessage), QString()},
        };
        const QUuid commandId(request.value(key(Header::CommandId)).toString());
        if (commandId != GetPlanList::CommandId) {
            reply.insert(key(Header::Status::Key), 3);
            reply.insert(key(Header::ErrorMessage), QStringLiteral("Unknown command"));
            return reply;
        }
        if (m_options.mode == QLatin1String("failed")) {
            reply.insert(key(Header::Status::Key), 3);
            reply.insert(key(Header::ErrorMessage), m_options.message);
            return reply;
        }
        if (m_options.mode == QLatin1String("retry") && m_tryLater > 0) {
            --m_tryLater;
            reply.insert(key(Header::Status::Key), 5);
            reply.insert(key(Header::ErrorMessage), QStringLiteral("The service is busy"));
            return reply;
        }
        reply.insert(key(Header::Status::Key), 2);
        if (m_options.mode == QLatin1String("non-object")) {
            reply.insert(key(Header::TypedResponse), QJsonObject{{"planList", "none"}});
            return reply;
        }
        GetPlanList::Request typedRequest;
        typedRequest.fromJson(request.value(key(Header::TypedRequest)).toObject());
        GetPlanList::Response response;
        response.setPlanList(planRows(typedRequest.profile()));
        reply.insert(key(Header::TypedResponse), response.toJson());
        return reply;
    }

    static QByteArray encodeNotification()
    {
        namespace Progress = Channel::Notification::Format::System::UpdateProgress;
        return Channel::encodeFrame({
            {key(Header::Type::Key), key(Header::Type::Notification)},
            {key(Header::Data),
             QJsonObject{
                 {key(Header::NotificationType), Progress::Type.toString()},
                 {key(Header::NotificationMessage),
                  QJsonObject{{key(Progress::Message), QStringLiteral("Downloading")},
                              {key(Progress::Count), 1}}},
             }},
        });
    }

    Options m_options;
    int m_tryLater = 0;
    QLocalServer m_server;
    QHash<QLocalSocket*, FrameReader> m_readers;
    QHash<QLocalSocket*, QByteArray> m_held;
};

} // namespace

int main(int argc, char** argv)
{
    // Never outlive the test that started us.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    QCoreApplication app(argc, argv);

    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption socketOption(QStringLiteral("socket"), QStringLiteral("Socket path."),
                                          QStringLiteral("path"));
    const QCommandLineOption modeOption(QStringLiteral("mode"), kModes.join(QLatin1Char('|')),
                                        QStringLiteral("mode"), QStringLiteral("reply"));
    const QCommandLineOption retriesOption(QStringLiteral("retries"),
                                           QStringLiteral("Status 5 answers before a real one."),
                                           QStringLiteral("count"), QStringLiteral("0"));
    const QCommandLineOption messageOption(
        QStringLiteral("message"), QStringLiteral("Error text of mode failed."),
        QStringLiteral("text"), QStringLiteral("The request was refused"));
    const QCommandLineOption recordOption(QStringLiteral("record"),
                                          QStringLiteral("Append received messages here."),
                                          QStringLiteral("file"));
    const QCommandLineOption maxSecondsOption(QStringLiteral("max-seconds"),
                                              QStringLiteral("Exit after this long."),
                                              QStringLiteral("seconds"), QStringLiteral("60"));
    parser.addOptions(
        {socketOption, modeOption, retriesOption, messageOption, recordOption, maxSecondsOption});
    parser.process(app);

    Options options;
    options.mode = parser.value(modeOption);
    options.message = parser.value(messageOption);
    options.retries = parser.value(retriesOption).toInt();
    options.record = parser.value(recordOption);
    if (parser.value(socketOption).isEmpty() || !kModes.contains(options.mode)) {
        std::fprintf(stderr, "fake_orvd: --socket PATH and --mode %s are required\n",
                     qPrintable(kModes.join(QLatin1Char('|'))));
        return 2;
    }

    FakeService service(options);
    if (!service.listen(parser.value(socketOption)))
        return 1;
    QTimer::singleShot(parser.value(maxSecondsOption).toInt() * 1000, &app,
                       &QCoreApplication::quit);
    std::printf("listening\n");
    std::fflush(stdout);
    return app.exec();
}
