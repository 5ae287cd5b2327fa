#pragma once

#include <QJsonObject>
#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>

namespace OrvTest {

// Runs build/bin/fake_orvd, the fault-injecting stand-in for the service (its
// modes are described at the top of fake_orvd.cpp), on a socket path of the
// test's choosing, and stops it when it goes out of scope.
class FakeOrvd
{
public:
    // Starts it and waits until it listens; check isListening() before use.
    FakeOrvd(const QString& socketPath, const QString& mode, const QStringList& extraArgs = {});
    ~FakeOrvd();

    FakeOrvd(const FakeOrvd&) = delete;
    FakeOrvd& operator=(const FakeOrvd&) = delete;

    bool isListening() const { return m_listening; }
    qint64 pid() const { return m_process.processId(); }
    // Ends it at once (SIGKILL), as a crash of the service would.
    void kill();
    // Every message it has received so far, oldest first.
    QList<QJsonObject> received() const;

private:
    QProcess m_process;
    QString m_record;
    bool m_listening = false;
};

} // namespace OrvTest
