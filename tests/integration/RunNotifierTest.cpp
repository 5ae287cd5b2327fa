// Run notifications delivered to a loopback SMTP sink: which runs are mailed,
// what the mail says, that plan names cannot add headers, and that a relay
// that never answers costs the service nothing but a log line.

#include "service/jobs/RunNotifier.h"

#include "orvCommon/DefaultSettings.h"
#include "orvInfo/Plan/BackupFile.h"
#include "orvInfo/Plan/PlanResult.h"
#include "unit/TemporaryInstance.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutex>
#include <QProcess>
#include <QTcpServer>
#include <QThread>
#include <algorithm>
#include <gtest/gtest.h>
#include <memory>

using Orv::Info::Plan::Notification;
using Orv::Info::Plan::PlanResult;
using Orv::Service::RunNotifier;
using Orv::Service::RunRecord;

namespace {

// Speaks just enough SMTP for libcurl (EHLO, AUTH PLAIN, MAIL, RCPT, DATA) and
// appends each message, parsed by Python's own mail parser, to a JSON-lines file.
const char* const SinkScript = R"PY(
import base64, email, email.policy, json, socketserver, sys, threading
target, lock = sys.argv[1], threading.Lock()
class Session(socketserver.StreamRequestHandler):
    def say(self, text): self.wfile.write(text.encode() + b"\r\n")
    def handle(self):
        self.say("220 sink"); sender, rcpt, auth = None, [], None
        while True:
            line = self.rfile.readline().decode().strip()
            verb = line[:4].upper()
            if not line or verb == "QUIT": return self.say("221 bye")
            if verb in ("EHLO", "HELO"): self.say("250-sink\r\n250 AUTH PLAIN")
            elif verb == "AUTH":
                parts = line.split()
                if len(parts) < 3:
                    self.say("334 "); parts.append(self.rfile.readline().decode().strip())
                auth = base64.b64decode(parts[2]).decode().split("\0")[1:]; self.say("235 ok")
            elif verb == "MAIL": sender, rcpt = line[10:], []; self.say("250 ok")
            elif verb == "RCPT": rcpt.append(line[8:]); self.say("250 ok")
            elif verb == "DATA":
                self.say("354 go"); data = b""
                while True:
                    chunk = self.rfile.readline()
                    if chunk in (b".\r\n", b""): break
                    data += chunk[1:] if chunk.startswith(b"..") else chunk
                message = email.message_from_bytes(data, policy=email.policy.default)
                record = {"from": sender, "rcpt": rcpt, "auth": auth, "headers": message.keys(),
                          "raw": data.decode("latin-1"), "subject": str(message["subject"]),
                          "body": message.get_content().replace("\r", "")}
                with lock, open(target, "a") as out: out.write(json.dumps(record) + "\n")
                self.say("250 ok")
            else: self.say("250 ok")
class Server(socketserver.ThreadingTCPServer):
    allow_reuse_address, daemon_threads = True, True
server = Server(("127.0.0.1", 0), Session)
print(server.server_address[1], flush=True)
server.serve_forever()
)PY";

// Collects the log lines of every thread while it lives.
class LogCapture
{
public:
    LogCapture()
    {
        s_lines.clear();
        s_previous = qInstallMessageHandler(&LogCapture::handle);
    }
    ~LogCapture() { qInstallMessageHandler(s_previous); }
    QStringList lines()
    {
        QMutexLocker locker(&s_mutex);
        return s_lines;
    }
    int count(const QString& text) { return int(lines().filter(text).size()); }

private:
    static void handle(QtMsgType, const QMessageLogContext&, const QString& text)
    {
        QMutexLocker locker(&s_mutex);
        s_lines.append(text);
    }
    static inline QMutex s_mutex;
    static inline QStringList s_lines;
    static inline QtMessageHandler s_previous = nullptr;
};

Orv::Info::Plan::BackupFile plan(const QString& name, Notification::Type type,
                                 const QString& subject = {}, bool detailed = false)
{
    Orv::Info::Plan::BackupFile plan;
    plan.setName(name);
    plan.setItems({QStringLiteral("/srv/data"), QStringLiteral("/home/ana")});
    plan.notification().setType(type);
    plan.notification().setSubject(subject);
    plan.notification().setGenerateDetailedReport(detailed);
    return plan;
}

RunRecord record(PlanResult::Value result)
{
    const QDateTime start(QDate(2024, 3, 9), QTime(22, 0, 0));
    return {42,
            {},
            start,
            start.addSecs(3725),
            int(result),
            1234,
            5678901,
            99,
            3,
            7,
            2,
            false,
            QStringLiteral("3 files could not be read")};
}

// "Label: value" lines of a body; the first colon ends the label.
QMap<QString, QString> fields(const QString& body)
{
    QMap<QString, QString> result;
    for (const QString& line : body.split(QLatin1Char('\n'))) {
        const int colon = line.indexOf(QLatin1Char(':'));
        if (colon > 0)
            result.insert(line.left(colon), line.mid(colon + 1).trimmed());
    }
    return result;
}

class RunNotifierTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        Orv::DefaultSettings::instance()->setNotifEmail(QStringLiteral("admin@example.com"));
    }

    // The sink's port; it appends each message to mail.json as a line.
    int startSink()
    {
        m_sink.start(QStringLiteral("python3"), {QStringLiteral("-c"), QLatin1String(SinkScript),
                                                 instance.path(QStringLiteral("mail.json"))});
        return m_sink.waitForReadyRead(10000) ? m_sink.readLine().trimmed().toInt() : 0;
    }

    void writeRelay(int port, int timeoutSeconds = 10)
    {
        instance.writeFile(QStringLiteral("config/smtp.conf"),
                           QStringLiteral("# test relay\nhost=127.0.0.1\nport=%1\ntls=none\n"
                                          "user=mailer\npassword=s3cret pass\n"
                                          "from=orvd@example.com\ntimeout=%2\n")
                               .arg(port)
                               .arg(timeoutSeconds)
                               .toUtf8());
    }

    QList<QJsonObject> messages() const
    {
        QList<QJsonObject> result;
        for (const QByteArray& line : instance.readFile(QStringLiteral("mail.json")).split('\n'))
            if (!line.isEmpty())
                result.append(QJsonDocument::fromJson(line).object());
        return result;
    }

    TemporaryInstance instance;
    std::unique_ptr<RunNotifier> notifier = std::make_unique<RunNotifier>();

private:
    QProcess m_sink;
};

TEST_F(RunNotifierTest, MailsTheRunsTheNotificationAsksForWithTheirFigures)
{
    const int port = startSink();
    ASSERT_GT(port, 0);
    writeRelay(port);
    using T = Notification::Type;
    using R = PlanResult;
    struct Case
    {
        const char* name;
        T type;
        R::Value result;
        const char* subject;
        bool detailed;
        const char* expectedSubject; // null: no mail
    };
    const QList<Case> cases = {
        {"On ok", T::On, R::Success, "%COMPUTER_NAME%/%PLAN_NAME%: %RESULT%", false,
         "desk-7/On ok: Success"},
        {"On failed", T::On, R::Failed, "", false, "On failed on desk-7: Failed"},
        {"Quiet ok", T::ErrorOnly, R::Success, "", false, nullptr},
        {"Quiet warning", T::ErrorOnly, R::Warning, "", false, nullptr},
        {"Quiet stopped", T::ErrorOnly, R::Stopped, "", false, nullptr},
        {"Loud failure", T::ErrorOnly, R::Failed, "", true, "Loud failure on desk-7: Failed"},
        {"Killed", T::ErrorOnly, R::Interrupted, "%RESULT%", false, "Failed (interrupted)"},
        {"Off failed", T::Off, R::Failed, "", false, nullptr},
        // A plan name cannot end the header and start one of its own.
        {"Evil\r\nBcc: victim@example.com\r\n", T::On, R::Success, "%PLAN_NAME% %RESULT%", false,
         "Evil Bcc: victim@example.com Success"},
        // A long non-ASCII subject goes as several encoded words.
        {"Sauvegarde ✓", T::On, R::Success,
         "Résultat de %PLAN_NAME% sur %COMPUTER_NAME% — %RESULT% — 𝄞 très long sujet", false,
         "Résultat de Sauvegarde ✓ sur desk-7 — Success — 𝄞 très long sujet"},
    };
    // The figures of some bodies, by the subject of their mail.
    const QMap<QString, QString> figures = {
        {"desk-7/On ok: Success",
         "Plan=On ok|Result=Success|Started=2024-03-09 22:00:00|Finished=2024-03-09 23:02:05|"
         "Duration=01:02:05|Files=1234|Size=5678901 bytes (5.42 MiB)|Failed=3"},
        {"Loud failure on desk-7: Failed",
         "Run=42|Uploaded=99 bytes (99 bytes)|Warnings=7|Errors=2|Sources=/srv/data|"
         "Destination=storage account 00000000-0000-0000-0000-000000000000"},
    };
    QMap<QString, const Case*> expected;
    for (const Case& c : cases) {
        const auto p =
            plan(QString::fromUtf8(c.name), c.type, QString::fromUtf8(c.subject), c.detailed);
        EXPECT_EQ(notifier->notify(p, record(c.result), QStringLiteral("desk-7")),
                  c.expectedSubject != nullptr)
            << c.name;
        if (c.expectedSubject)
            expected.insert(QString::fromUtf8(c.expectedSubject), &c);
    }
    ASSERT_TRUE(notifier->waitForDone(20000));

    const QList<QJsonObject> mails = messages();
    ASSERT_EQ(mails.size(), expected.size());
    for (const QJsonObject& mail : mails) {
        const QString subject = mail.value("subject").toString();
        const Case* c = expected.value(subject);
        ASSERT_TRUE(c) << subject.toStdString();
        EXPECT_EQ(mail.value("rcpt").toArray(), QJsonArray({"<admin@example.com>"})) << c->name;
        EXPECT_EQ(mail.value("auth").toArray(), QJsonArray({"mailer", "s3cret pass"}));
        EXPECT_FALSE(mail.value("headers").toArray().contains("Bcc")) << c->name;
        const QByteArray raw = mail.value("raw").toString().toLatin1();
        EXPECT_TRUE(std::all_of(raw.begin(), raw.end(), [](char byte) { return byte > 0; }))
            << "not ASCII: " << c->name;
        const QString body = mail.value("body").toString();
        EXPECT_TRUE(body.contains(QStringLiteral("3 files could not be read"))) << c->name;
        const auto found = fields(body);
        for (const QString& figure : figures.value(subject).split('|', Qt::SkipEmptyParts)) {
            const QString label = figure.section('=', 0, 0);
            EXPECT_EQ(found.value(label), figure.section('=', 1)) << c->name;
        }
        EXPECT_EQ(found.contains(QStringLiteral("Uploaded")), c->detailed) << c->name;
    }
    // The plain password is sealed once the service has read it.
    const QByteArray relayFile = instance.readFile(QStringLiteral("config/smtp.conf"));
    EXPECT_FALSE(relayFile.contains("s3cret")) << relayFile.constData();
    EXPECT_TRUE(relayFile.contains("password=v1:"));
    EXPECT_TRUE(relayFile.contains("# test relay"));
    EXPECT_EQ(QFile::permissions(instance.path(QStringLiteral("config/smtp.conf"))) & 0x0077, 0);
}

TEST_F(RunNotifierTest, WithoutAddressOrRelayNothingIsSentAndThatIsLoggedOnce)
{
    struct Case
    {
        const char* address;
        bool relay;
        const char* logged;
    };
    const QList<Case> cases = {
        {"", true, "No notification e-mail address is set"},
        {"admin at example", true, "is not valid"},
        {"admin@example.com", false, "No mail relay is set up"},
    };
    for (const Case& c : cases) {
        Orv::DefaultSettings::instance()->setNotifEmail(QString::fromUtf8(c.address));
        QFile::remove(instance.path(QStringLiteral("config/smtp.conf")));
        if (c.relay)
            writeRelay(25);
        RunNotifier fresh;
        LogCapture log;
        const auto p = plan(QStringLiteral("Any"), Notification::Type::On);
        EXPECT_FALSE(fresh.notify(p, record(PlanResult::Failed), QStringLiteral("desk-7")));
        EXPECT_FALSE(fresh.notify(p, record(PlanResult::Failed), QStringLiteral("desk-7")));
        EXPECT_EQ(log.count(QString::fromUtf8(c.logged)), 1) << c.address;
    }
}

TEST_F(RunNotifierTest, RelayThatNeverAnswersIsLoggedAndBlocksNobody)
{
    // Takes connections into its backlog and never greets.
    QTcpServer silent;
    ASSERT_TRUE(silent.listen(QHostAddress::LocalHost));
    writeRelay(silent.serverPort(), 2);
    LogCapture log;
    const auto p = plan(QStringLiteral("Stalled"), Notification::Type::On);

    QElapsedTimer clock;
    clock.start();
    ASSERT_TRUE(notifier->notify(p, record(PlanResult::Failed), QStringLiteral("desk-7")));
    EXPECT_LT(clock.elapsed(), 1000);
    ASSERT_TRUE(notifier->waitForDone(15000));
    EXPECT_GE(clock.elapsed(), 1900);
    const QString where = QStringLiteral("127.0.0.1:%1").arg(silent.serverPort());
    EXPECT_EQ(log.count(QStringLiteral("Cannot mail the run of Stalled through ") + where), 1)
        << log.lines().join('\n').toStdString();
    EXPECT_EQ(log.count(QStringLiteral("s3cret")), 0);

    // A service that stops does not wait for the relay's timeout either.
    writeRelay(silent.serverPort(), 600);
    ASSERT_TRUE(notifier->notify(p, record(PlanResult::Failed), QStringLiteral("desk-7")));
    QThread::msleep(300);
    clock.restart();
    notifier.reset();
    EXPECT_LT(clock.elapsed(), 3000);
}

} // namespace
