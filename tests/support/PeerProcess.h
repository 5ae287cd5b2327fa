#pragma once

#include <QProcess>
#include <QRegularExpression>
#include <QString>
#include <QStringList>

namespace OrvTest {

// A storage server run from node_modules/ for a test: started with its
// arguments, watched until its output says that it listens, and stopped with
// SIGTERM (SIGKILL after five seconds) when the peer ends.
class PeerProcess
{
public:
    PeerProcess() = default;
    ~PeerProcess() { stop(); }
    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;

    // Starts ORV_SOURCE_DIR/node_modules/.bin/<tool> and waits (at most
    // timeoutMs) until its output matches listening, whose first group is the
    // port. False with the reason and the output otherwise.
    bool start(const QString& tool, const QStringList& arguments,
               const QRegularExpression& listening, int timeoutMs, int* port, QString* error);
    void stop();

    // A port on 127.0.0.1 that nothing listened on a moment ago, for servers
    // that cannot pick their own.
    static int freePort();

private:
    QProcess m_process;
};

} // namespace OrvTest
