#pragma once

#include "kelCloud/Backend.h"
#include "kelCloud/S3Client.h"
#include "kelCloud/Types.h"

namespace Kel::Cloud {

// A bucket (Config::Container) of an S3-like store: Amazon S3 and its China
// regions, Wasabi, Alibaba Cloud, Minio and any S3-compatible service.
// Config::Endpoint (host[:port] or URL) overrides the provider's own service
// host and switches to path-style addresses, except for providers that accept
// only bucket-in-host addresses; Config::UseSsl chooses https (the default)
// or http; Config::Region and Config::SignatureVersion override the
// provider's. Objects above Config::PartSize are uploaded in parts.
class S3Backend : public Backend
{
public:
    static constexpr qint64 MinPartSize = 5 * 1024 * 1024;
    static constexpr qint64 DefaultPartSize = 16 * 1024 * 1024;
    static constexpr qint64 MaxPartSize = 512 * 1024 * 1024;

    static bool serves(Type type);
    static std::unique_ptr<Backend> create(Type type, const QVariantMap& config, Status* status);

    Status check() override;
    Status listContainers(QList<ObjectInfo>* containers) override;
    Status list(const QString& prefix, QList<ObjectInfo>* objects) override;
    Status stat(const QString& name, ObjectInfo* info) override;
    Status read(const QString& name, qint64 offset, qint64 length, QIODevice* sink) override;
    Status write(const QString& name, QIODevice* source, qint64 size) override;
    Status remove(const QString& name) override;

    using Backend::read;
    using Backend::write;

    // Keys per listing request (the service's maximum, 1000, by default).
    void setListPageSize(int keys) { m_pageSize = qBound(1, keys, 1000); }
    // Where requests go, for the administrator's messages and for tests.
    QByteArray urlOf(const QString& name) const;

private:
    S3Backend(const S3Client::Settings& settings, qint64 partSize);

    Status needBucket() const;
    Status put(const QString& name, const QByteArray& body);
    Status putInParts(const QString& name, QByteArray first, QByteArray second, QIODevice* source,
                      qint64 remaining);
    Status uploadParts(const QString& name, const QString& uploadId, QByteArray first,
                       QByteArray second, QIODevice* source, qint64 remaining,
                       QList<QByteArray>* etags);

    S3Client m_client;
    qint64 m_partSize;
    int m_pageSize = 1000;
};

} // namespace Kel::Cloud
