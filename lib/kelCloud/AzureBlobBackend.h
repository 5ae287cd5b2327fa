#pragma once

#include "kelCloud/AzureBlobClient.h"
#include "kelCloud/Backend.h"

namespace Kel::Cloud {

// A container (Config::Container) of an Azure storage account
// (Config::AccountName), signed with the account's shared key
// (Config::SharedKey). Config::AzureType names the cloud (see AzureCloud);
// for the custom type Config::Endpoint is the blob service's address: a URL
// or host[:port] taken as it is, except that an IP address or "localhost"
// without a path is an emulator's, addressed path-style
// ("http://127.0.0.1:10000/ACCOUNT/CONTAINER/BLOB"). Config::UseSsl chooses
// https (the default) or http where the endpoint names no scheme. Objects
// above Config::PartSize are uploaded as blocks of that size.
class AzureBlobBackend : public Backend
{
public:
    static constexpr qint64 MinBlockSize = 64 * 1024;
    static constexpr qint64 DefaultBlockSize = 16 * 1024 * 1024;
    static constexpr qint64 MaxBlockSize = 512 * 1024 * 1024;

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

    // Blobs per listing request (the service's maximum, 5000, by default).
    void setListPageSize(int blobs) { m_pageSize = qBound(1, blobs, 5000); }
    // Where requests for the object go, for messages and tests.
    QByteArray urlOf(const QString& name) const;

private:
    AzureBlobBackend(const AzureBlobClient::Settings& settings, qint64 blockSize);

    Status needContainer() const;
    Status putWhole(const QString& name, const QByteArray& data);
    Status putBlocks(const QString& name, QByteArray first, QByteArray second,
                     class UploadSource* source);
    Status listPages(AzureBlobClient::Request request, bool blobs, QList<ObjectInfo>* entries);

    AzureBlobClient m_client;
    qint64 m_blockSize;
    int m_pageSize = 5000;
};

} // namespace Kel::Cloud
