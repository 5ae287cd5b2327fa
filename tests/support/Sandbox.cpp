#include "support/Sandbox.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocalSocket>
#include <QSettings>
#include <QThread>
#include <gtest/gtest.h>
#include <iostream>
#include <signal.h>
#include <sys/types.h>

namespace OrvTest {

namespace {

const char kServiceConsole[] = "logs/orvd.console.log";

int exitCodeOf(const QProcess& process)
{
    return process.exitStatus() == QProcess::CrashExit ? -1 : process.exitCode();
}

QByteArray tail(const QByteArray& data, int bytes)
{
    return data.size() <= bytes ? data : "...\n" + data.right(bytes);
}

} // namespace

bool waitForSocket(const QString& path, int timeoutMs, QProcess* watched)
{
    const QDeadlineTimer deadline(timeoutMs);
    for (;;) {
        QLocalSocket probe;
        probe.connectToServer(path);
        if (probe.waitForConnected(200)) {
            probe.abort();
            return true;
        }
        if (deadline.hasExpired())
            return false;
        // A process that exited will never listen: do not wait out the clock.
        if (!watched)
            QThread::msleep(20);
        else if (watched->state() == QProcess::NotRunning || watched->waitForFinished(20))
            return false;
    }
}

Sandbox::Sandbox() : m_dir(QDir::tempPath() + QStringLiteral("/orv-test-XXXXXX"))
{
    if (!m_dir.isValid()) {
        ADD_FAILURE() << "cannot create a temporary folder: " << m_dir.errorString().toStdString();
        return;
    }
    QDir root(m_dir.path());
    for (const char* folder : {"config", "logs", "data", "run"})
        root.mkpath(QLatin1String(folder));
    if (qEnvironmentVariableIsSet("ORV_KEEP_SANDBOX")) {
        m_dir.setAutoRemove(false);
        std::cerr << "[sandbox] kept at " << m_dir.path().toStdString() << std::endl;
    }
}

Sandbox::~Sandbox()
{
    if (m_service && m_service->state() != QProcess::NotRunning)
        stopService(SIGTERM);
    if (m_service && ::testing::Test::HasFailure())
        reportServiceOutput();
}

QString Sandbox::root() const
{
    return m_dir.path();
}

QString Sandbox::path(const QString& relative) const
{
    return QDir(m_dir.path()).filePath(relative);
}

void Sandbox::writeFile(const QString& relative, const QByteArray& data)
{
    const QString target = path(relative);
    QFileInfo(target).dir().mkpath(QStringLiteral("."));
    QFile file(target);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(data) != data.size())
        ADD_FAILURE() << "cannot write " << target.toStdString() << ": "
                      << file.errorString().toStdString();
}

QByteArray Sandbox::readFile(const QString& relative) const
{
    QFile file(path(relative));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll();
}

bool Sandbox::exists(const QString& relative) const
{
    return QFileInfo::exists(path(relative));
}

void Sandbox::setManaged(bool managed)
{
    QSettings file(path(QStringLiteral("config/orvclient.conf")), QSettings::IniFormat);
    file.setValue(QStringLiteral("Installation/edition"),
                  managed ? QStringLiteral("managed") : QStringLiteral("standalone"));
    file.sync();
    if (file.status() != QSettings::NoError)
        ADD_FAILURE() << "cannot write config/orvclient.conf";
}

void Sandbox::setServiceEnvironment(const QProcessEnvironment& environment)
{
    m_serviceEnvironment = environment;
}

bool Sandbox::startService()
{
    if (m_service && m_service->state() != QProcess::NotRunning)
        return true;
    m_service = std::make_unique<QProcess>();
    m_service->setProcessEnvironment(environment(m_serviceEnvironment));
    m_service->setWorkingDirectory(root());
    m_service->setStandardInputFile(QProcess::nullDevice());
    m_service->setStandardOutputFile(path(QLatin1String(kServiceConsole)), QIODevice::Append);
    m_service->setStandardErrorFile(path(QLatin1String(kServiceConsole)), QIODevice::Append);
    m_service->start(binary(QStringLiteral("orvd")), QStringList());
    if (!m_service->waitForStarted(10000)) {
        std::cerr << "[sandbox] cannot start orvd: " << m_service->errorString().toStdString()
                  << std::endl;
        m_service.reset();
        return false;
    }
    if (waitForSocket(socketPath(), 10000, m_service.get()))
        return true;
    if (m_service->state() == QProcess::NotRunning)
        std::cerr << "[sandbox] orvd exited at start with " << exitCodeOf(*m_service) << std::endl;
    else
        std::cerr << "[sandbox] orvd did not accept on " << socketPath().toStdString()
                  << " within 10 s" << std::endl;
    reportServiceOutput();
    return false;
}

int Sandbox::stopService(int signal)
{
    if (!m_service)
        return -1;
    if (m_service->state() != QProcess::NotRunning) {
        const auto pid = static_cast<pid_t>(m_service->processId());
        ::kill(pid, signal);
        // A service held with SIGSTOP must run again to act on the signal.
        if (signal != SIGKILL && signal != SIGSTOP)
            ::kill(pid, SIGCONT);
        if (!m_service->waitForFinished(10000)) {
            std::cerr << "[sandbox] orvd ignored signal " << signal << " for 10 s; killing it"
                      << std::endl;
            m_service->kill();
            m_service->waitForFinished(5000);
            return -1;
        }
    }
    return exitCodeOf(*m_service);
}

qint64 Sandbox::servicePid() const
{
    if (!m_service || m_service->state() == QProcess::NotRunning)
        return 0;
    return m_service->processId();
}

QString Sandbox::socketPath() const
{
    return path(QStringLiteral("run/orvd.sock"));
}

RunResult Sandbox::run(const QStringList& args, const QByteArray& stdinData,
                       const QProcessEnvironment& extraEnv, int timeoutMs)
{
    return runBinary(binary(QStringLiteral("orvV2")), args, stdinData, extraEnv, timeoutMs);
}

RunResult Sandbox::runBinary(const QString& program, const QStringList& args,
                             const QByteArray& stdinData, const QProcessEnvironment& extraEnv,
                             int timeoutMs)
{
    QString resolved = program;
    if (!program.contains(QLatin1Char('/')) && QFileInfo::exists(binary(program)))
        resolved = binary(program);

    QProcess process;
    process.setProcessEnvironment(environment(extraEnv));
    process.setWorkingDirectory(root());
    process.start(resolved, args);
    if (!process.waitForStarted(10000))
        return {-1,
                {},
                QStringLiteral("[sandbox] cannot start %1: %2")
                    .arg(resolved, process.errorString())
                    .toUtf8()};
    if (!stdinData.isEmpty())
        process.write(stdinData);
    process.closeWriteChannel();

    RunResult result{0, {}, {}};
    if (process.waitForFinished(timeoutMs > 0 ? timeoutMs : -1)) {
        result.exitCode = exitCodeOf(process);
    } else {
        process.kill();
        process.waitForFinished(5000);
        result.exitCode = -2;
    }
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    if (result.exitCode == -2)
        result.err += QStringLiteral("\n[sandbox] %1 %2 did not end within %3 ms; killed\n")
                          .arg(resolved, args.join(QLatin1Char(' ')))
                          .arg(timeoutMs)
                          .toUtf8();
    return result;
}

QString Sandbox::binary(const QString& name)
{
    return QDir(QStringLiteral(ORV_BIN_DIR)).filePath(name);
}

QProcessEnvironment Sandbox::environment(const QProcessEnvironment& extraEnv) const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("ORV_ROOT"), root());
    for (const QString& key : extraEnv.keys())
        environment.insert(key, extraEnv.value(key));
    return environment;
}

void Sandbox::reportServiceOutput() const
{
    std::cerr << "[sandbox] orvd output (" << kServiceConsole << "):\n"
              << tail(readFile(QLatin1String(kServiceConsole)), 8192).toStdString() << std::endl;
    const QDir logs(path(QStringLiteral("logs")));
    for (const QString& name : logs.entryList({QStringLiteral("*.log")}, QDir::Files)) {
        if (name == QLatin1String("orvd.console.log"))
            continue;
        std::cerr << "[sandbox] logs/" << name.toStdString() << ":\n"
                  << tail(readFile(QStringLiteral("logs/") + name), 4096).toStdString()
                  << std::endl;
    }
}

} // namespace OrvTest
