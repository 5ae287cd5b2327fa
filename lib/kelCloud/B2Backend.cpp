#include "kelCloud/B2Backend.h"

#include "kelCloud/Config.h"
#include "kelCloud/ConfigReader.h"
#include "kelCloud/Listing.h"
#include "kelCloud/ObjectName.h"
#include "kelCloud/UploadSource.h"
#include "kelNetwork/Endpoint.h"

#include <QCryptographicHash>
#include <QJsonArray>

namespace Kel::Cloud {

namespace {

Status invalid(const QString& message)
{
    return Status::failure(Operation::Error::InvalidConfiguration, message);
}

QDateTime fromMilliseconds(const QJsonValue& value)
{
    return QDateTime::fromMSecsSinceEpoch(value.toVariant().toLongLong(), Qt::UTC);
}

Status readAuthorizeUrl(const ConfigReader& reader, QByteArray* url)
{
    const QString text = reader.text(Config::Endpoint);
    if (text.isEmpty())
        return Status::success();
    const Kel::Network::Endpoint endpoint = Kel::Network::Endpoint::parse(text);
    const QString scheme = endpoint.scheme.isEmpty() ? QStringLiteral("https") : endpoint.scheme;
    if (!endpoint.isValid() || !endpoint.path.isEmpty() ||
        (scheme != QLatin1String("http") && scheme != QLatin1String("https")))
        return invalid(
            QStringLiteral("the endpoint \"%1\" is not an http or https address").arg(text));
    const QString authority = endpoint.port > 0 ? endpoint.authority(0) : endpoint.urlHost();
    *url = (scheme + QStringLiteral("://") + authority).toUtf8();
    return Status::success();
}

} // namespace

B2Backend::B2Backend(const B2Client::Settings& settings, const QString& bucket, qint64 partSize)
    : m_client(settings), m_bucket(bucket), m_partSize(partSize)
{
}

std::unique_ptr<Backend> B2Backend::create(const QVariantMap& config, Status* status)
{
    const ConfigReader reader(config);
    B2Client::Settings settings;
    settings.keyId = reader.text(Config::KeyId);
    settings.applicationKey = reader.raw(Config::ApplicationKey).trimmed();
    if (settings.keyId.isEmpty() || settings.applicationKey.isEmpty()) {
        *status = invalid(QStringLiteral("the key id and the application key are both needed"));
        return nullptr;
    }
    *status = readAuthorizeUrl(reader, &settings.authorizeUrl);
    if (!status->ok())
        return nullptr;
    settings.proxy = reader.proxy();
    settings.retryAttempts = reader.retryAttempts();
    settings.retryInterval = reader.retryInterval();
    qint64 partSize = 0;
    QString error;
    if (!reader.partSize(DefaultPartSize, MinPartSize, MaxPartSize, &partSize, &error)) {
        *status = invalid(error);
        return nullptr;
    }
    return std::unique_ptr<Backend>(
        new B2Backend(settings, reader.text(Config::Container), partSize));
}

Status B2Backend::resolveBucket()
{
    if (!m_bucketId.isEmpty())
        return Status::success();
    if (m_bucket.isEmpty())
        return invalid(QStringLiteral("no bucket is configured"));
    QList<ObjectInfo> buckets;
    const Status status = listContainers(&buckets);
    if (!status.ok())
        return status;
    for (const ObjectInfo& bucket : qAsConst(buckets)) {
        if (bucket.name == m_bucket || bucket.id == m_bucket) {
            m_bucketId = bucket.id;
            m_bucketName = bucket.name;
            return Status::success();
        }
    }
    const QString restricted = m_client.account().allowedBucketName;
    return Status::failure(
        Operation::Error::ContainerNotFound,
        restricted.isEmpty()
            ? QStringLiteral("the bucket %1 does not exist").arg(m_bucket)
            : QStringLiteral("the bucket %1 does not exist or the key does not reach it (the key "
                             "is restricted to the bucket %2)")
                  .arg(m_bucket, restricted));
}

Status B2Backend::check()
{
    Status status = resolveBucket();
    if (!status.ok())
        return status;
    QJsonObject answer;
    status = m_client.call(
        "b2_list_file_names",
        {{QStringLiteral("bucketId"), m_bucketId}, {QStringLiteral("maxFileCount"), 1}}, &answer);
    if (!status.ok())
        return status;
    const QString probe = ObjectName::reserved(QStringLiteral("probe"));
    status = uploadWhole(probe, QByteArrayLiteral("probe"));
    return status.ok() ? deleteVersions(probe) : status;
}

Status B2Backend::listContainers(QList<ObjectInfo>* containers)
{
    containers->clear();
    Status status = m_client.authorize();
    if (!status.ok())
        return status;
    QJsonObject request{{QStringLiteral("accountId"), m_client.account().accountId}};
    // A key restricted to one bucket may list only that one.
    if (!m_client.account().allowedBucketId.isEmpty())
        request.insert(QStringLiteral("bucketId"), m_client.account().allowedBucketId);
    QJsonObject answer;
    status = m_client.call("b2_list_buckets", request, &answer);
    if (!status.ok())
        return status;
    for (const QJsonValue& value : answer.value(QStringLiteral("buckets")).toArray()) {
        const QJsonObject bucket = value.toObject();
        ObjectInfo info;
        info.name = bucket.value(QStringLiteral("bucketName")).toString();
        info.id = bucket.value(QStringLiteral("bucketId")).toString();
        containers->append(info);
    }
    return Status::success();
}

Status B2Backend::list(const QString& prefix, QList<ObjectInfo>* objects)
{
    objects->clear();
    Status status = ObjectName::checkPrefix(prefix);
    if (status.ok())
        status = resolveBucket();
    if (!status.ok())
        return status;
    return followPages([&](const QString& start, QString* next) {
        QJsonObject request{{QStringLiteral("bucketId"), m_bucketId},
                            {QStringLiteral("prefix"), prefix},
                            {QStringLiteral("maxFileCount"), m_pageSize}};
        if (!start.isEmpty())
            request.insert(QStringLiteral("startFileName"), start);
        QJsonObject answer;
        const Status called = m_client.call("b2_list_file_names", request, &answer);
        if (!called.ok())
            return called;
        QList<ObjectInfo> uploaded;
        for (const QJsonValue& value : answer.value(QStringLiteral("files")).toArray()) {
            const QJsonObject file = value.toObject();
            // Unfinished large files are not objects.
            if (file.value(QStringLiteral("action")).toString() != QLatin1String("upload"))
                continue;
            uploaded.append({file.value(QStringLiteral("fileName")).toString(),
                             file.value(QStringLiteral("contentLength")).toVariant().toLongLong(),
                             fromMilliseconds(file.value(QStringLiteral("uploadTimestamp")))});
        }
        appendListed(uploaded, objects);
        *next = answer.value(QStringLiteral("nextFileName")).toString();
        return Status::success();
    });
}

Status B2Backend::stat(const QString& name, ObjectInfo* info)
{
    Status status = ObjectName::check(name);
    if (status.ok())
        status = resolveBucket();
    if (!status.ok())
        return status;
    B2Client::Response response;
    status = m_client.download("HEAD", m_bucketName, name, {}, nullptr, &response);
    if (!status.ok())
        return status;
    *info = {name, response.headers.value("content-length").toLongLong(),
             QDateTime::fromMSecsSinceEpoch(
                 response.headers.value("x-bz-upload-timestamp").toLongLong(), Qt::UTC)};
    return Status::success();
}

Status B2Backend::read(const QString& name, qint64 offset, qint64 length, QIODevice* sink)
{
    Status status = ObjectName::check(name);
    if (status.ok())
        status = resolveBucket();
    if (!status.ok() || length == 0)
        return status;
    QList<QByteArray> headers;
    const qint64 start = qMax<qint64>(0, offset);
    if (start > 0 || length > 0) {
        const QByteArray end = length > 0 ? QByteArray::number(start + length - 1) : QByteArray();
        headers << "Range: bytes=" + QByteArray::number(start) + '-' + end;
    }
    B2Client::Response response;
    status = m_client.download("GET", m_bucketName, name, headers, sink, &response);
    // A range that starts beyond the end holds nothing.
    if (response.status == 416)
        return Status::success();
    return status;
}

Status B2Backend::write(const QString& name, QIODevice* source, qint64 size)
{
    Status status = ObjectName::check(name);
    if (status.ok())
        status = resolveBucket();
    if (!status.ok())
        return status;
    UploadSource data(source, size);
    QByteArray first;
    QByteArray second;
    status = data.next(m_partSize, &first);
    if (status.ok())
        status = data.next(m_partSize, &second);
    if (!status.ok())
        return status;
    if (second.isEmpty())
        return uploadWhole(name, first);
    return uploadLarge(name, std::move(first), std::move(second), &data);
}

Status B2Backend::uploadWhole(const QString& name, const QByteArray& data)
{
    B2Client::UploadTarget target;
    target.request = {{QStringLiteral("bucketId"), m_bucketId}};
    QJsonObject answer;
    return m_client.upload(
        target,
        {"X-Bz-File-Name: " + B2Client::encodeName(name), "Content-Type: application/octet-stream"},
        data, &answer);
}

Status B2Backend::uploadLarge(const QString& name, QByteArray first, QByteArray second,
                              UploadSource* source)
{
    QJsonObject started;
    Status status =
        m_client.call("b2_start_large_file",
                      {{QStringLiteral("bucketId"), m_bucketId},
                       {QStringLiteral("fileName"), name},
                       {QStringLiteral("contentType"), QStringLiteral("application/octet-stream")}},
                      &started);
    if (!status.ok())
        return status;
    const QString fileId = started.value(QStringLiteral("fileId")).toString();
    if (fileId.isEmpty())
        return Status::failure(Operation::Error::Unknown,
                               QStringLiteral("the server started no upload of %1").arg(name));
    status = uploadParts(fileId, std::move(first), std::move(second), source);
    if (status.ok())
        return status;
    // The parts of an unfinished large file are stored, and paid for, until
    // it is cancelled.
    QJsonObject ignored;
    m_client.call("b2_cancel_large_file", {{QStringLiteral("fileId"), fileId}}, &ignored);
    return status;
}

Status B2Backend::uploadParts(const QString& fileId, QByteArray first, QByteArray second,
                              UploadSource* source)
{
    B2Client::UploadTarget target;
    target.operation = "b2_get_upload_part_url";
    target.request = {{QStringLiteral("fileId"), fileId}};
    QJsonArray hashes;
    QByteArray part = std::move(first);
    QByteArray next = std::move(second);
    while (!part.isEmpty()) {
        hashes.append(
            QString::fromLatin1(QCryptographicHash::hash(part, QCryptographicHash::Sha1).toHex()));
        QJsonObject answer;
        Status status = m_client.upload(
            target, {"X-Bz-Part-Number: " + QByteArray::number(hashes.size())}, part, &answer);
        if (!status.ok())
            return status;
        part = std::move(next);
        next.clear();
        status = source->next(m_partSize, &next);
        if (!status.ok())
            return status;
    }
    QJsonObject finished;
    return m_client.call(
        "b2_finish_large_file",
        {{QStringLiteral("fileId"), fileId}, {QStringLiteral("partSha1Array"), hashes}}, &finished);
}

Status B2Backend::remove(const QString& name)
{
    Status status = ObjectName::check(name);
    if (status.ok())
        status = resolveBucket();
    return status.ok() ? deleteVersions(name) : status;
}

Status B2Backend::deleteVersions(const QString& name)
{
    // Every version of the name goes: a hidden or older version still takes
    // space.
    for (;;) {
        QJsonObject answer;
        Status status = m_client.call("b2_list_file_versions",
                                      {{QStringLiteral("bucketId"), m_bucketId},
                                       {QStringLiteral("startFileName"), name},
                                       {QStringLiteral("prefix"), name},
                                       {QStringLiteral("maxFileCount"), 100}},
                                      &answer);
        if (!status.ok())
            return status;
        int deleted = 0;
        for (const QJsonValue& value : answer.value(QStringLiteral("files")).toArray()) {
            const QJsonObject file = value.toObject();
            if (file.value(QStringLiteral("fileName")).toString() != name)
                continue;
            QJsonObject ignored;
            status =
                m_client.call("b2_delete_file_version",
                              {{QStringLiteral("fileName"), name},
                               {QStringLiteral("fileId"), file.value(QStringLiteral("fileId"))}},
                              &ignored);
            if (status.ok())
                ++deleted;
            else if (status.error != Operation::Error::ObjectNotFound)
                return status;
        }
        if (deleted == 0)
            return Status::success();
    }
}

} // namespace Kel::Cloud
