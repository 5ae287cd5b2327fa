#pragma once

#include "kelCloud/Backend.h"
#include "kelCloud/GoogleStorageClient.h"

namespace Kel::Cloud {

class UploadSource;

// A Google Cloud Storage bucket (Config::Container) reached through the JSON
// API with OAuth access tokens: a service account's key (Config::PrivateKey,
// the key file's JSON or a PEM key with Config::ServiceEmail) or an installed
// application's authorisation (Config::RefreshToken, or Config::AuthCode
// exchanged for one; see configChanges()). Config::ProjectId names the
// project whose buckets are listed. Config::Endpoint replaces the service's
// address and Config::TokenUrl the token endpoint. Objects above
// Config::PartSize (a multiple of 256 KiB) are uploaded in a resumable
// session, in chunks of that size. Accounts with HMAC keys go to S3Backend.
class GoogleStorageBackend : public Backend
{
public:
    static constexpr qint64 ChunkUnit = 256 * 1024;
    static constexpr qint64 DefaultChunkSize = 16 * 1024 * 1024;
    static constexpr qint64 MaxChunkSize = 512 * 1024 * 1024;

    static std::unique_ptr<Backend> create(const QVariantMap& config, Status* status);

    Status check() override;
    Status listContainers(QList<ObjectInfo>* containers) override;
    Status list(const QString& prefix, QList<ObjectInfo>* objects) override;
    Status stat(const QString& name, ObjectInfo* info) override;
    Status read(const QString& name, qint64 offset, qint64 length, QIODevice* sink) override;
    Status write(const QString& name, QIODevice* source, qint64 size) override;
    Status remove(const QString& name) override;
    QVariantMap configChanges() const override;

    using Backend::read;
    using Backend::write;

private:
    GoogleStorageBackend(const QByteArray& serviceUrl, const QString& bucket,
                         const QString& projectId, const GoogleTokenSource::Settings& tokens,
                         qint64 chunkSize);

    Status needBucket() const;
    QByteArray objectPath(const QString& name) const;
    Status listPages(GoogleStorageClient::Request request, QList<ObjectInfo>* entries);
    Status uploadWhole(const QString& name, const QByteArray& data);
    Status deleteObject(const QString& name);
    Status uploadResumable(const QString& name, QByteArray first, QByteArray second,
                           UploadSource* source);
    Status uploadChunks(const QByteArray& session, QByteArray first, QByteArray second,
                        UploadSource* source);

    GoogleStorageClient m_client;
    QString m_projectId;
    QString m_configuredRefreshToken;
    qint64 m_chunkSize;
};

} // namespace Kel::Cloud
