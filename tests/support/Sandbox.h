#pragma once

#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <csignal>
#include <memory>

namespace OrvTest {

struct RunResult
{
    // The program's exit status; -1 when it crashed or could not be started,
    // -2 when it outlived its time and was killed.
    int exitCode;
    QByteArray out;
    QByteArray err;
};

// One self-contained instance for a test: a temporary ORV_ROOT with config/,
// logs/, data/ and run/, the real orvd started on it on request, and orvV2 (or
// any other program) run against it. Nothing is written outside the folder,
// which is removed afterwards (kept when ORV_KEEP_SANDBOX is set, for a look
// after a failure).
class Sandbox
{
public:
    Sandbox();
    // Stops orvd if it is still running.
    ~Sandbox();

    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    QString root() const;
    QString path(const QString& relative) const;
    // Creates the folders on the way.
    void writeFile(const QString& relative, const QByteArray& data);
    // Empty when the file does not exist or cannot be read.
    QByteArray readFile(const QString& relative) const;
    bool exists(const QString& relative) const;
    // Writes the installation record's edition into config/orvclient.conf.
    void setManaged(bool managed);

    // Environment added to orvd's on the next startService().
    void setServiceEnvironment(const QProcessEnvironment& environment);
    // Starts build/bin/orvd with ORV_ROOT set and waits (at most 10 s) until its
    // socket accepts. False, with the reason reported to the test, when it
    // exited or did not listen in time. Its stdout and stderr go to
    // logs/orvd.console.log.
    bool startService();
    // Sends the signal and waits (at most 10 s, then SIGKILL) for orvd to end.
    // Returns its exit code; -1 when it died of a signal or had to be killed.
    int stopService(int signal = SIGTERM);
    // 0 when orvd is not running.
    qint64 servicePid() const;
    QString socketPath() const;

    // Runs build/bin/orvV2 with ORV_ROOT set, in the sandbox folder, feeding
    // stdinData on its standard input.
    RunResult run(const QStringList& args, const QByteArray& stdinData = {},
                  const QProcessEnvironment& extraEnv = {}, int timeoutMs = 30000);
    // The same for any program: a bare name is looked up in the build's bin/
    // folder first, then in PATH.
    RunResult runBinary(const QString& program, const QStringList& args,
                        const QByteArray& stdinData = {}, const QProcessEnvironment& extraEnv = {},
                        int timeoutMs = 30000);

    // ORV_BIN_DIR/name.
    static QString binary(const QString& name);
    // The environment every program started here gets: the test's own with
    // ORV_ROOT pointing at this sandbox.
    QProcessEnvironment environment(const QProcessEnvironment& extraEnv = {}) const;

private:
    void reportServiceOutput() const;

    QTemporaryDir m_dir;
    QProcessEnvironment m_serviceEnvironment;
    std::unique_ptr<QProcess> m_service;
};

// Waits until something accepts connections on the local socket at path,
// giving up after timeoutMs or as soon as watched (when given) is no longer
// running.
bool waitForSocket(const QString& path, int timeoutMs, QProcess* watched = nullptr);

} // namespace OrvTest
