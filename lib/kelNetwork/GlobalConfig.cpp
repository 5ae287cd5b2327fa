#include "kelNetwork/GlobalConfig.h"

#include <QMutexLocker>

namespace Kel::Network {

GlobalConfig* GlobalConfig::instance()
{
    static GlobalConfig config;
    return &config;
}

QString GlobalConfig::caInfoPath() const
{
    QMutexLocker lock(&m_mutex);
    return m_caInfoPath;
}

void GlobalConfig::setCaInfoPath(const QString& path)
{
    QMutexLocker lock(&m_mutex);
    m_caInfoPath = path;
}

QString GlobalConfig::trustedCertificatesPath() const
{
    QMutexLocker lock(&m_mutex);
    return m_trustedCertificatesPath;
}

void GlobalConfig::setTrustedCertificatesPath(const QString& path)
{
    QMutexLocker lock(&m_mutex);
    m_trustedCertificatesPath = path;
}

bool GlobalConfig::ignoreSslErrors() const
{
    QMutexLocker lock(&m_mutex);
    return m_ignoreSslErrors;
}

void GlobalConfig::setIgnoreSslErrors(bool ignore)
{
    QMutexLocker lock(&m_mutex);
    m_ignoreSslErrors = ignore;
}

int GlobalConfig::connectionRetryAttempts() const
{
    QMutexLocker lock(&m_mutex);
    return m_retryAttempts;
}

void GlobalConfig::setConnectionRetryAttempts(int attempts)
{
    QMutexLocker lock(&m_mutex);
    m_retryAttempts = qMax(0, attempts);
}

int GlobalConfig::connectionRetryInterval() const
{
    QMutexLocker lock(&m_mutex);
    return m_retryInterval;
}

void GlobalConfig::setConnectionRetryInterval(int milliseconds)
{
    QMutexLocker lock(&m_mutex);
    m_retryInterval = qMax(0, milliseconds);
}

} // namespace Kel::Network
