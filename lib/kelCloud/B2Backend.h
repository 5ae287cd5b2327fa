#pragma once

#include "kelCloud/B2Client.h"
#include "kelCloud/Backend.h"

namespace Kel::Cloud {

class UploadSource;

// A Backblaze B2 bucket, named in Config::Container by its name or its id,
// reached with an application key (Config::KeyId, Config::ApplicationKey)
// through B2's native API. Config::Endpoint replaces the host where keys are
// authorised (a URL; https when it names no scheme). Objects above
// Config::PartSize (16 MiB when not given; at least the service's minimum of
// 5 MB) are uploaded as large files in parts of that size. Deleting an object
// deletes every version of it, so that its space is freed.
class B2Backend : public Backend
{
public:
    static constexpr qint64 MinPartSize = 5000000;
    static constexpr qint64 DefaultPartSize = 16 * 1024 * 1024;
    static constexpr qint64 MaxPartSize = 512 * 1024 * 1024;

    static std::unique_ptr<Backend> create(const QVariantMap& config, Status* status);

    Status check() override;
    Status listContainers(QList<ObjectInfo>* containers) override;
    Status list(const QString& prefix, QList<ObjectInfo>* objects) override;
    Status stat(const QString& name, ObjectInfo* info) override;
    Status read(const QString& name, qint64 offset, qint64 length, QIODevice* sink) override;
    Status write(const QString& name, QIODevice* source, qint64 size) override;
    Status remove(const QString& name) override;

    using Backend::read;
    using Backend::write;

    // Files per listing request (the service's free maximum, 1000, by default).
    void setListPageSize(int files) { m_pageSize = qBound(1, files, 1000); }

private:
    B2Backend(const B2Client::Settings& settings, const QString& bucket, qint64 partSize);

    // Finds the configured bucket's id and name, once.
    Status resolveBucket();
    Status uploadWhole(const QString& name, const QByteArray& data);
    Status deleteVersions(const QString& name);
    Status uploadLarge(const QString& name, QByteArray first, QByteArray second,
                       UploadSource* source);
    Status uploadParts(const QString& fileId, QByteArray first, QByteArray second,
                       UploadSource* source);

    B2Client m_client;
    QString m_bucket;
    QString m_bucketId;
    QString m_bucketName;
    qint64 m_partSize;
    int m_pageSize = 1000;
};

} // namespace Kel::Cloud
