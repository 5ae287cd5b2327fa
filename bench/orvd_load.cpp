// Load on the service: many clients at once, each asking for the plan list
// over and over, as a monitoring tool or a busy administrator would.
//
// Starts orvd (beside this program in the build's bin/ folder) on a temporary
// instance with some plans, then measures:
//   baseline  one client alone, one request at a time;
//   load      CLIENTS clients at once, REQUESTS requests each, one at a time
//             per client, every reply checked (status, id, every plan row);
// and prints p50/p99 latency of both, the ratio of load p99 to baseline p50,
// and orvd's resident memory when idle before and after the load.
// Goals: p99 under load below 20 ms, idle memory after the run below 30 MB.
//
//   build/bin/bench_orvd_load [--clients 50] [--requests 200] [--plans 20]
//
// Exits 1 when a reply was wrong or missing, or orvd did not stop cleanly.

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/Frame.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QSet>
#include <QTemporaryDir>
#include <QThread>
#include <QUuid>
#include <QtEndian>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

namespace Communication = Orv::Common::Communication;
namespace Format = Communication::Commands::Format;
namespace Header = Format::Header;
using Clock = std::chrono::steady_clock;

constexpr double kGoalP99Ms = 20.0;
constexpr double kGoalRssMb = 30.0;

QByteArray planXml(const QUuid& id, int index)
{
    QByteArray xml = QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                    "<Plan ID=\"%1\" Name=\"Plan %2\" Type=\"Backup\" "
                                    "Storage=\"{a1b2c3d4-e5f6-4711-8899-aabbccddeeff}\">\n")
                         .arg(id.toString())
                         .arg(index)
                         .toUtf8();
    // About the size of a real plan: sources, exclusions, a schedule.
    for (int i = 0; i < 12; ++i)
        xml += QStringLiteral("  <Source Path=\"/srv/data/share-%1/folder-%2\" "
                              "Recursive=\"true\" Exclude=\"*.tmp;*.cache\"/>\n")
                   .arg(index)
                   .arg(i)
                   .toUtf8();
    xml += "  <Schedule Kind=\"Daily\" At=\"02:30\" Retry=\"3\"/>\n</Plan>\n";
    return xml;
}

int connectTo(const QString& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const QByteArray encoded = QFile::encodeName(path);
    std::memcpy(address.sun_path, encoded.constData(),
                std::min(sizeof(address.sun_path) - 1, static_cast<size_t>(encoded.size())));
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0)
        return fd;
    if (fd >= 0)
        ::close(fd);
    return -1;
}

bool sendAll(int fd, const QByteArray& bytes)
{
    qsizetype sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count = ::send(fd, bytes.constData() + sent,
                                     static_cast<size_t>(bytes.size() - sent), MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        sent += count;
    }
    return true;
}

// The body of the next frame; false when the connection ended or broke.
bool receiveBody(int fd, QByteArray& pending, QByteArray* body)
{
    char buffer[64 * 1024];
    for (;;) {
        if (pending.size() >= Communication::kFrameHeaderSize) {
            const quint32 length = qFromBigEndian<quint32>(pending.constData());
            if (length > Communication::kMaxFrameSize)
                return false;
            const int total = Communication::kFrameHeaderSize + static_cast<int>(length);
            if (pending.size() >= total) {
                *body = pending.mid(Communication::kFrameHeaderSize, static_cast<int>(length));
                pending.remove(0, total);
                return true;
            }
        }
        const ssize_t count = ::recv(fd, buffer, sizeof(buffer), 0);
        if (count <= 0)
            return false;
        pending.append(buffer, static_cast<int>(count));
    }
}

// Checks the replies of one client. A reply is parsed and checked member by
// member; once one has passed, a later reply that is the same byte for byte
// apart from its id passes without parsing, so that checking does not take
// the CPU the service needs. Any other reply is parsed and checked in full.
class ReplyChecker
{
public:
    explicit ReplyChecker(const QSet<QString>& expectedIds) : m_expectedIds(expectedIds) {}

    // Empty when the reply is right, otherwise what is wrong with it.
    QString check(const QByteArray& body, const QString& id)
    {
        const QByteArray idMember = "\"id\":\"" + id.toUtf8() + '"';
        const int at = body.indexOf(idMember);
        QByteArray blanked;
        if (at >= 0) {
            blanked = body;
            blanked.replace(at, idMember.size(), "\"id\":null");
            if (blanked == m_approved)
                return {};
        }
        const QString problem = checkParsed(body, id);
        if (problem.isEmpty())
            m_approved = blanked;
        return problem;
    }

private:
    QString checkParsed(const QByteArray& body, const QString& id) const
    {
        const QJsonObject reply = QJsonDocument::fromJson(body).object();
        if (reply.value(QLatin1String(Header::Id)).toString() != id ||
            reply.value(QLatin1String(Header::Status::Key)).toString() !=
                QLatin1String(Header::Status::Value::Success))
            return QStringLiteral("reply for %1: id %2, status %3")
                .arg(id, reply.value(QLatin1String(Header::Id)).toString(),
                     reply.value(QLatin1String(Header::Status::Key)).toString());
        const QJsonArray rows = reply.value(QLatin1String(Header::Data))
                                    .toObject()
                                    .value(QLatin1String(Format::Plan::GetList::Reply::Key))
                                    .toArray();
        QSet<QString> ids;
        for (const QJsonValue& row : rows)
            ids.insert(
                row.toObject().value(QLatin1String(Format::Plan::DataType::Info::ID)).toString());
        if (rows.size() != m_expectedIds.size() || ids != m_expectedIds)
            return QStringLiteral("reply for %1 lists %2 plans, not the %3 expected")
                .arg(id)
                .arg(rows.size())
                .arg(m_expectedIds.size());
        return {};
    }

    QSet<QString> m_expectedIds;
    QByteArray m_approved;
};

// One client: its own connection, one request at a time.
struct ClientResult
{
    std::vector<double> latenciesMs;
    int wrong = 0;
    QString firstProblem;
};

ClientResult runClient(const QString& socketPath, int client, int requests,
                       const QSet<QString>& expectedIds)
{
    ClientResult result;
    result.latenciesMs.reserve(static_cast<size_t>(requests));
    const int fd = connectTo(socketPath);
    if (fd < 0) {
        result.wrong = requests;
        result.firstProblem = QStringLiteral("cannot connect");
        return result;
    }
    ReplyChecker checker(expectedIds);
    QByteArray pending;
    for (int i = 0; i < requests; ++i) {
        const QString id = QStringLiteral("%1-%2").arg(client).arg(i);
        const QByteArray frame = Communication::encodeFrame(
            {{QLatin1String(Header::Type::Key), QLatin1String(Header::Type::Request)},
             {QLatin1String(Header::Command), QLatin1String(Format::Plan::GetList::Name)},
             {QLatin1String(Header::Id), id},
             {QLatin1String(Header::SessionId), QStringLiteral("bench")},
             {QLatin1String(Header::Params), QJsonObject()}});
        QByteArray body;
        const Clock::time_point start = Clock::now();
        if (!sendAll(fd, frame) || !receiveBody(fd, pending, &body)) {
            result.wrong += requests - i;
            result.firstProblem = QStringLiteral("connection lost after %1 replies").arg(i);
            break;
        }
        result.latenciesMs.push_back(
            std::chrono::duration<double, std::milli>(Clock::now() - start).count());
        const QString problem = checker.check(body, id);
        if (problem.isEmpty())
            continue;
        ++result.wrong;
        if (result.firstProblem.isEmpty())
            result.firstProblem = problem;
    }
    ::close(fd);
    return result;
}

struct Run
{
    std::vector<double> latenciesMs;
    int wrong = 0;
    int expected = 0;
    QString firstProblem;
    double seconds = 0;
};

Run runClients(const QString& socketPath, int clients, int requests,
               const QSet<QString>& expectedIds)
{
    std::vector<ClientResult> results(static_cast<size_t>(clients));
    std::vector<std::thread> threads;
    const Clock::time_point start = Clock::now();
    for (int c = 0; c < clients; ++c)
        threads.emplace_back([&, c] {
            results[static_cast<size_t>(c)] = runClient(socketPath, c, requests, expectedIds);
        });
    for (std::thread& thread : threads)
        thread.join();
    Run run;
    run.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    run.expected = clients * requests;
    for (const ClientResult& result : results) {
        run.latenciesMs.insert(run.latenciesMs.end(), result.latenciesMs.begin(),
                               result.latenciesMs.end());
        run.wrong += result.wrong;
        if (run.firstProblem.isEmpty())
            run.firstProblem = result.firstProblem;
    }
    std::sort(run.latenciesMs.begin(), run.latenciesMs.end());
    return run;
}

double percentile(const std::vector<double>& sorted, double fraction)
{
    if (sorted.empty())
        return 0;
    const size_t index = std::min(sorted.size() - 1, static_cast<size_t>(fraction * sorted.size()));
    return sorted[index];
}

// Resident and peak memory of a process, in MB, from /proc.
std::pair<double, double> memoryOf(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return {0, 0};
    double rss = 0;
    double peak = 0;
    for (const QByteArray& line : status.readAll().split('\n')) {
        const QList<QByteArray> parts = line.simplified().split(' ');
        if (parts.size() < 2)
            continue;
        if (parts[0] == "VmRSS:")
            rss = parts[1].toDouble() / 1024;
        else if (parts[0] == "VmHWM:")
            peak = parts[1].toDouble() / 1024;
    }
    return {rss, peak};
}

// User plus system CPU time a process has used, in seconds.
double cpuSecondsOf(qint64 pid)
{
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return 0;
    // Fields after the command name, which is in parentheses and may hold spaces.
    const QByteArray line = stat.readAll();
    const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
    if (fields.size() < 13)
        return 0;
    return (fields[11].toDouble() + fields[12].toDouble()) /
           static_cast<double>(::sysconf(_SC_CLK_TCK));
}

bool waitForSocket(const QString& path, QProcess& service)
{
    for (int i = 0; i < 500; ++i) {
        const int fd = connectTo(path);
        if (fd >= 0) {
            ::close(fd);
            return true;
        }
        if (service.waitForFinished(20))
            return false;
    }
    return false;
}

void printRun(const char* label, const Run& run)
{
    std::printf("%-9s %6d requests in %6.2f s (%7.0f/s)  p50 %6.3f ms  p99 %6.3f ms  max %7.3f "
                "ms  wrong or lost %d\n",
                label, run.expected, run.seconds, run.expected / run.seconds,
                percentile(run.latenciesMs, 0.50), percentile(run.latenciesMs, 0.99),
                run.latenciesMs.empty() ? 0.0 : run.latenciesMs.back(), run.wrong);
    if (!run.firstProblem.isEmpty())
        std::printf("          first problem: %s\n", qPrintable(run.firstProblem));
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Load benchmark of orvd"));
    parser.addHelpOption();
    const QCommandLineOption clientsOption(QStringLiteral("clients"),
                                           QStringLiteral("Concurrent clients."),
                                           QStringLiteral("n"), QStringLiteral("50"));
    const QCommandLineOption requestsOption(QStringLiteral("requests"),
                                            QStringLiteral("Requests per client."),
                                            QStringLiteral("n"), QStringLiteral("200"));
    const QCommandLineOption plansOption(QStringLiteral("plans"),
                                         QStringLiteral("Plan files in the instance."),
                                         QStringLiteral("n"), QStringLiteral("20"));
    parser.addOptions({clientsOption, requestsOption, plansOption});
    parser.process(app);
    const int clients = std::max(1, parser.value(clientsOption).toInt());
    const int requests = std::max(1, parser.value(requestsOption).toInt());
    const int plans = std::max(0, parser.value(plansOption).toInt());

    QTemporaryDir instance(QDir::tempPath() + QStringLiteral("/orvd-load-XXXXXX"));
    if (!instance.isValid()) {
        std::fprintf(stderr, "cannot create a temporary instance\n");
        return 1;
    }
    QSet<QString> expectedIds;
    QDir(instance.path()).mkpath(QStringLiteral("config/plans"));
    for (int i = 0; i < plans; ++i) {
        const QUuid id = QUuid::createUuid();
        expectedIds.insert(id.toString());
        QFile file(instance.filePath(QStringLiteral("config/plans/%1.xml").arg(id.toString())));
        if (!file.open(QIODevice::WriteOnly) || file.write(planXml(id, i)) < 0) {
            std::fprintf(stderr, "cannot write a plan file\n");
            return 1;
        }
    }

    QProcess service;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("ORV_ROOT"), instance.path());
    service.setProcessEnvironment(environment);
    service.setProcessChannelMode(QProcess::ForwardedChannels);
    service.start(QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("orvd")),
                  QStringList());
    const QString socketPath = instance.filePath(QStringLiteral("run/orvd.sock"));
    if (!service.waitForStarted(10000) || !waitForSocket(socketPath, service)) {
        std::fprintf(stderr, "orvd did not start\n");
        return 1;
    }
    const qint64 pid = service.processId();
    std::printf("orvd pid %lld, %d plans, %d clients x %d requests of PlanGetList\n",
                static_cast<long long>(pid), plans, clients, requests);

    // Warm-up, then the baseline: the same requests one at a time from one client.
    runClients(socketPath, 1, 50, expectedIds);
    QThread::msleep(300);
    const auto idleBefore = memoryOf(pid);
    const Run baseline = runClients(socketPath, 1, requests, expectedIds);
    const double cpuBefore = cpuSecondsOf(pid);
    const Run load = runClients(socketPath, clients, requests, expectedIds);
    const double loadCpu = cpuSecondsOf(pid) - cpuBefore;
    QThread::msleep(1000);
    const auto idleAfter = memoryOf(pid);

    printRun("baseline", baseline);
    printRun("load", load);
    const double loadP99 = percentile(load.latenciesMs, 0.99);
    const double baselineP50 = percentile(baseline.latenciesMs, 0.50);
    std::printf("load p99 / baseline p50: %.1f\n", baselineP50 > 0 ? loadP99 / baselineP50 : 0.0);
    std::printf("orvd CPU under load: %.2f s, %.0f us per request\n", loadCpu,
                load.expected > 0 ? loadCpu * 1e6 / load.expected : 0.0);
    std::printf("orvd memory: idle before %.1f MB, idle after %.1f MB, peak %.1f MB\n",
                idleBefore.first, idleAfter.first, idleAfter.second);
    std::printf("goal p99 < %.0f ms: %s; goal idle RSS < %.0f MB: %s\n", kGoalP99Ms,
                loadP99 < kGoalP99Ms ? "met" : "MISSED", kGoalRssMb,
                idleAfter.first < kGoalRssMb ? "met" : "MISSED");

    ::kill(static_cast<pid_t>(pid), SIGTERM);
    const bool stopped = service.waitForFinished(10000) &&
                         service.exitStatus() == QProcess::NormalExit && service.exitCode() == 0;
    if (!stopped) {
        std::fprintf(stderr, "orvd did not stop cleanly\n");
        service.kill();
        service.waitForFinished(5000);
    }
    return baseline.wrong == 0 && load.wrong == 0 && stopped ? 0 : 1;
}
