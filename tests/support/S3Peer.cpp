#include "support/S3Peer.h"

#include "kelCloud/Config.h"

#include <QFile>

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
    static const QRegularExpression listening(QStringLiteral("listening on [^:\\s]+:(\\d+)"));
    return m_process.start(QStringLiteral("s3rver"), arguments, listening, 30000, &m_port, error);
}

void S3Peer::stop()
{
    m_process.stop();
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
