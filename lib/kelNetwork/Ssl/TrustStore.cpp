#include "kelNetwork/Ssl/TrustStore.h"

#include "kelNetwork/GlobalConfig.h"
#include "kelNetwork/Ssl/SslCertificateCache.h"

#include <QDateTime>
#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QMutexLocker>
#include <curl/curl.h>
#include <openssl/err.h>
#include <openssl/x509_vfy.h>

namespace Kel::Network::Ssl {

namespace {

// What the store was made from; a different key makes a new store.
struct Sources
{
    QString caInfo;
    QString trustedFile;
    QDateTime trustedModified;
    qint64 trustedSize = -1;
    quint64 cacheGeneration = 0;

    bool operator==(const Sources& other) const
    {
        return caInfo == other.caInfo && trustedFile == other.trustedFile &&
               trustedModified == other.trustedModified && trustedSize == other.trustedSize &&
               cacheGeneration == other.cacheGeneration;
    }
};

Sources currentSources()
{
    const GlobalConfig* config = GlobalConfig::instance();
    Sources sources;
    sources.caInfo = config->caInfoPath();
    sources.trustedFile = config->trustedCertificatesPath();
    const QFileInfo trusted(sources.trustedFile);
    if (!sources.trustedFile.isEmpty() && trusted.exists()) {
        sources.trustedModified = trusted.lastModified();
        sources.trustedSize = trusted.size();
    }
    sources.cacheGeneration = SslCertificateCache::instance()->generation();
    return sources;
}

void loadAnchors(X509_STORE* store, const QString& caInfo)
{
    if (!caInfo.isEmpty()) {
        if (X509_STORE_load_locations(store, QFile::encodeName(caInfo).constData(), nullptr) != 1)
            qWarning() << "Cannot read the CA bundle" << caInfo;
        return;
    }
    // The HTTP library's own defaults, so that trust is what it would be
    // without this store.
    const curl_version_info_data* info = curl_version_info(CURLVERSION_NOW);
    const char* file = info->cainfo && *info->cainfo ? info->cainfo : nullptr;
    const char* folder = info->capath && *info->capath ? info->capath : nullptr;
    if (!file && !folder) {
        X509_STORE_set_default_paths(store);
        return;
    }
    if (X509_STORE_load_locations(store, file, folder) != 1)
        qWarning() << "Cannot read the system's trust anchors";
}

X509_STORE* build(const Sources& sources)
{
    X509_STORE* store = X509_STORE_new();
    if (!store)
        return nullptr;
    loadAnchors(store, sources.caInfo);
    if (sources.trustedSize >= 0)
        X509_STORE_load_locations(store, QFile::encodeName(sources.trustedFile).constData(),
                                  nullptr);
    SslCertificateCache::instance()->addTo(store);
    // The user trusts the very certificate they were shown, usually the
    // server's own rather than a root above it.
    X509_STORE_set_flags(store, X509_V_FLAG_PARTIAL_CHAIN);
    ERR_clear_error();
    return store;
}

} // namespace

X509_STORE* TrustStore::acquire()
{
    static QMutex mutex;
    static Sources built;
    static X509_STORE* store = nullptr;
    const Sources sources = currentSources();
    QMutexLocker lock(&mutex);
    if (!store || !(sources == built)) {
        X509_STORE* fresh = build(sources);
        if (!fresh)
            return nullptr;
        if (store)
            X509_STORE_free(store);
        store = fresh;
        built = sources;
    }
    X509_STORE_up_ref(store);
    return store;
}

} // namespace Kel::Network::Ssl
