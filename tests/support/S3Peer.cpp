#include "support/S3Peer.h"

#include "kelCloud/Config.h"

#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>

namespace OrvTest {

namespace {

bool writeFile(const QString& path, const QByteArray& data)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

} // namespace

S3Peer::S3Peer(bool https, const QStringList& buckets) : m_https(https), m_buckets(buckets) {}

S3Peer::~S3Peer()
{
    stop();
}

bool S3Peer::start(QString* error)
{
    const QString program = QStringLiteral(ORV_SOURCE_DIR "/node_modules/.bin/s3rver");
    if (!QFile::exists(program)) {
        *error = program + QStringLiteral(" is missing; run scripts/setup");
        return false;
    }
    QStringList arguments{QStringLiteral("-d"),
                          m_dir.filePath(QStringLiteral("data")),
                          QStringLiteral("-a"),
                          QStringLiteral("127.0.0.1"),
                          QStringLiteral("-p"),
                          QStringLiteral("0"),
                          QStringLiteral("--no-vhost-buckets")};
    for (const QString& bucket : qAsConst(m_buckets))
        arguments << QStringLiteral("--configure-bucket") << bucket;
    if (m_https) {
        m_certificates = TestCertificates::make();
        const QString key = m_dir.filePath(QStringLiteral("server.key"));
        const QString chain = m_dir.filePath(QStringLiteral("chain.pem"));
        if (!writeFile(key, m_certificates.serverKeyPem) ||
            !writeFile(chain, m_certificates.chainPem())) {
            *error = QStringLiteral("cannot write the certificate files");
            return false;
        }
        arguments << QStringLiteral("--key") << key << QStringLiteral("--cert") << chain;
    }
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_process.start(program, arguments);
    if (!m_process.waitForStarted(10000)) {
        *error = QStringLiteral("s3rver did not start: ") + m_process.errorString();
        return false;
    }
    static const QRegularExpression listening(QStringLiteral("listening on [^:\\s]+:(\\d+)"));
    QByteArray output;
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 30000 && m_process.state() == QProcess::Running) {
        m_process.waitForReadyRead(200);
        output += m_process.readAll();
        const QRegularExpressionMatch match = listening.match(QString::fromUtf8(output));
        if (match.hasMatch()) {
            m_port = match.captured(1).toInt();
            return true;
        }
    }
    *error = QStringLiteral("s3rver did not listen: ") + QString::fromUtf8(output);
    return false;
}

void S3Peer::stop()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(5000)) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

QVariantMap S3Peer::config(const QString& bucket, const QString& signature,
                           const QString& type) const
{
    namespace Config = Kel::Cloud::Config;
    return {
        {QLatin1String(Config::Type), type},
        {QLatin1String(Config::Endpoint), endpoint()},
        {QLatin1String(Config::UseSsl), m_https ? QStringLiteral("true") : QStringLiteral("false")},
        {QLatin1String(Config::AccessKey), QLatin1String(AccessKey)},
        {QLatin1String(Config::SecretKey), QLatin1String(SecretKey)},
        {QLatin1String(Config::Container), bucket},
        {QLatin1String(Config::SignatureVersion), signature},
        {QLatin1String(Config::RetryAttempts), QStringLiteral("2")},
        {QLatin1String(Config::RetryInterval), QStringLiteral("10")},
    };
}

} // namespace OrvTest
