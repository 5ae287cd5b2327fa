#include "support/FakeOrvd.h"

#include "support/Sandbox.h"

#include <QFile>
#include <QJsonDocument>
#include <iostream>

namespace OrvTest {

FakeOrvd::FakeOrvd(const QString& socketPath, const QString& mode, const QStringList& extraArgs)
    : m_record(socketPath + QStringLiteral(".received"))
{
    QFile::remove(m_record);
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process.start(Sandbox::binary(QStringLiteral("fake_orvd")),
                    QStringList{QStringLiteral("--socket"), socketPath, QStringLiteral("--mode"),
                                mode, QStringLiteral("--record"), m_record,
                                QStringLiteral("--max-seconds"), QStringLiteral("300")} +
                        extraArgs);
    // It says so on stdout once the socket accepts.
    while (m_process.waitForReadyRead(10000)) {
        if (m_process.readAllStandardOutput().contains("listening")) {
            m_listening = true;
            return;
        }
    }
    std::cerr << "[fake_orvd] did not start in mode " << mode.toStdString() << ": "
              << m_process.errorString().toStdString() << std::endl;
}

FakeOrvd::~FakeOrvd()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(5000)) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

void FakeOrvd::kill()
{
    m_process.kill();
    m_process.waitForFinished(5000);
}

QList<QJsonObject> FakeOrvd::received() const
{
    QList<QJsonObject> messages;
    QFile file(m_record);
    if (!file.open(QIODevice::ReadOnly))
        return messages;
    for (const QByteArray& line : file.readAll().split('\n'))
        if (!line.isEmpty())
            messages.append(QJsonDocument::fromJson(line).object());
    return messages;
}

} // namespace OrvTest
