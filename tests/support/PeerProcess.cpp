#include "support/PeerProcess.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTcpServer>

namespace OrvTest {

bool PeerProcess::start(const QString& tool, const QStringList& arguments,
                        const QRegularExpression& listening, int timeoutMs, int* port,
                        QString* error)
{
    const QString program = QStringLiteral(ORV_SOURCE_DIR "/node_modules/.bin/") + tool;
    if (!QFile::exists(program)) {
        *error = program + QStringLiteral(" is missing; run scripts/setup");
        return false;
    }
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_process.start(program, arguments);
    if (!m_process.waitForStarted(10000)) {
        *error = tool + QStringLiteral(" did not start: ") + m_process.errorString();
        return false;
    }
    QByteArray output;
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < timeoutMs && m_process.state() == QProcess::Running) {
        m_process.waitForReadyRead(200);
        output += m_process.readAll();
        const QRegularExpressionMatch match = listening.match(QString::fromUtf8(output));
        if (match.hasMatch()) {
            *port = match.captured(1).toInt();
            return true;
        }
    }
    *error = tool + QStringLiteral(" did not listen: ") + QString::fromUtf8(output);
    stop();
    return false;
}

void PeerProcess::stop()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(5000)) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

int PeerProcess::freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

} // namespace OrvTest
