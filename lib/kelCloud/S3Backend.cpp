#include "kelCloud/S3Backend.h"

#include "kelCloud/Config.h"
#include "kelCloud/ConfigReader.h"
#include "kelCloud/Listing.h"
#include "kelCloud/ObjectName.h"
#include "kelCloud/S3Provider.h"
#include "kelCloud/S3Xml.h"
#include "kelCloud/UploadSource.h"
#include "kelNetwork/Endpoint.h"

#include <QIODevice>
#include <QLocale>
#include <QRegularExpression>

namespace Kel::Cloud {

using Info::AmazonS3Like::Signature;

namespace {

Status invalid(const QString& message)
{
    return Status::failure(Operation::Error::InvalidConfiguration, message);
}

// Bucket names that can stand in a host name (and in a certificate's
// wildcard: no dots over https).
bool fitsInHost(const QString& bucket, bool https)
{
    static const QRegularExpression name(QStringLiteral("^[a-z0-9][a-z0-9.-]{1,61}[a-z0-9]$"));
    return name.match(bucket).hasMatch() && !(https && bucket.contains(QLatin1Char('.'))) &&
           !bucket.contains(QLatin1String(".."));
}

bool readSignature(const ConfigReader& reader, Signature::Version* version)
{
    const QString text = reader.text(Config::SignatureVersion);
    if (text.isEmpty())
        return true;
    if (Signature::SignatureVersionValue().contains(text)) {
        *version = Signature::SignatureVersionValue().value(text);
        return true;
    }
    bool number = false;
    const int value = text.toInt(&number);
    // Checked as a number: an enum holds only its own values.
    if (!number || (value != Signature::AWS2 && value != Signature::AWS4))
        return false;
    *version = static_cast<Signature::Version>(value);
    return true;
}

Status readSettings(Type type, const ConfigReader& reader, S3Client::Settings* settings)
{
    const S3Provider provider = S3Provider::forType(type);
    settings->accessKey = reader.text(Config::AccessKey).toUtf8();
    settings->secretKey = reader.raw(Config::SecretKey).toUtf8();
    settings->bucket = reader.text(Config::Container);
    if (settings->accessKey.isEmpty() || settings->secretKey.isEmpty())
        return invalid(QStringLiteral("the access key and the secret key are both needed"));

    const QString endpointText = reader.text(Config::Endpoint);
    const Kel::Network::Endpoint endpoint =
        Kel::Network::Endpoint::parse(endpointText.isEmpty() ? provider.host : endpointText);
    if (endpointText.isEmpty() && provider.host.isEmpty())
        return invalid(QStringLiteral("this account type needs an endpoint"));
    if (!endpoint.isValid() || !endpoint.path.isEmpty())
        return invalid(
            QStringLiteral("the endpoint \"%1\" is not a host name or address").arg(endpointText));
    bool flagOk = true;
    const bool useSsl = reader.flag(Config::UseSsl, true, &flagOk);
    if (!flagOk)
        return invalid(QStringLiteral("UseSSL must be true or false, not \"%1\"")
                           .arg(reader.text(Config::UseSsl)));
    settings->scheme = endpoint.scheme.isEmpty()
                           ? (useSsl ? QStringLiteral("https") : QStringLiteral("http"))
                           : endpoint.scheme;
    if (settings->scheme != QLatin1String("http") && settings->scheme != QLatin1String("https"))
        return invalid(
            QStringLiteral("the endpoint \"%1\" is neither http nor https").arg(endpointText));
    settings->host = endpoint.host;
    settings->port = endpoint.port;
    const bool https = settings->scheme == QLatin1String("https");
    settings->virtualHosted =
        provider.virtualHostedOnly ||
        (provider.virtualHosted && endpointText.isEmpty() && fitsInHost(settings->bucket, https));

    const QString hostRegion = S3Provider::regionOfHost(endpoint.host);
    settings->region = reader.has(Config::Region) ? reader.text(Config::Region)
                       : !hostRegion.isEmpty()    ? hostRegion
                                                  : provider.region;
    settings->signature = provider.signature;
    if (!readSignature(reader, &settings->signature))
        return invalid(QStringLiteral("unknown signature version \"%1\"")
                           .arg(reader.text(Config::SignatureVersion)));
    settings->proxy = reader.proxy();
    settings->retryAttempts = reader.retryAttempts();
    settings->retryInterval = reader.retryInterval();
    return Status::success();
}

QDateTime parseHttpDate(const QByteArray& text)
{
    QDateTime time = QLocale::c().toDateTime(QString::fromLatin1(text),
                                             QStringLiteral("ddd, dd MMM yyyy HH:mm:ss 'GMT'"));
    time.setTimeSpec(Qt::UTC);
    return time;
}

} // namespace

bool S3Backend::serves(Type type)
{
    return S3Provider::serves(type);
}

S3Backend::S3Backend(const S3Client::Settings& settings, qint64 partSize)
    : m_client(settings), m_partSize(partSize)
{
}

std::unique_ptr<Backend> S3Backend::create(Type type, const QVariantMap& config, Status* status)
{
    const ConfigReader reader(config);
    S3Client::Settings settings;
    *status = readSettings(type, reader, &settings);
    if (!status->ok())
        return nullptr;
    qint64 partSize = 0;
    QString error;
    if (!reader.partSize(DefaultPartSize, MinPartSize, MaxPartSize, &partSize, &error)) {
        *status = invalid(error);
        return nullptr;
    }
    return std::unique_ptr<Backend>(new S3Backend(settings, partSize));
}

QByteArray S3Backend::urlOf(const QString& name) const
{
    S3Client::Request request;
    request.key = name;
    return m_client.url(request);
}

Status S3Backend::needBucket() const
{
    if (m_client.settings().bucket.isEmpty())
        return invalid(QStringLiteral("no bucket is configured"));
    return Status::success();
}

Status S3Backend::check()
{
    Status status = needBucket();
    if (!status.ok())
        return status;
    S3Client::Request request;
    request.query = {{QStringLiteral("max-keys"), QStringLiteral("1")}};
    S3Client::Response response;
    status = m_client.send(request, &response);
    if (!status.ok())
        return status;
    const QString probe = ObjectName::reserved(QStringLiteral("probe"));
    status = put(probe, QByteArrayLiteral("probe"));
    if (!status.ok())
        return status;
    request = {};
    request.method = "DELETE";
    request.key = probe;
    return m_client.send(request, &response);
}

Status S3Backend::listContainers(QList<ObjectInfo>* containers)
{
    containers->clear();
    S3Client::Request request;
    request.toService = true;
    S3Client::Response response;
    const Status status = m_client.send(request, &response);
    if (!status.ok())
        return status;
    if (!S3Xml::parseBuckets(response.body, containers))
        return Status::failure(
            Operation::Error::Unknown,
            QStringLiteral("the bucket list from %1 cannot be read").arg(m_client.settings().host));
    return Status::success();
}

Status S3Backend::list(const QString& prefix, QList<ObjectInfo>* objects)
{
    objects->clear();
    Status status = ObjectName::checkPrefix(prefix);
    if (status.ok())
        status = needBucket();
    if (!status.ok())
        return status;
    return followPages([&](const QString& marker, QString* next) {
        S3Client::Request request;
        request.query = {{QStringLiteral("max-keys"), QString::number(m_pageSize)}};
        if (!prefix.isEmpty())
            request.query.insert(QStringLiteral("prefix"), prefix);
        if (!marker.isEmpty())
            request.query.insert(QStringLiteral("marker"), marker);
        S3Client::Response response;
        const Status sent = m_client.send(request, &response);
        if (!sent.ok())
            return sent;
        S3Xml::ObjectPage page;
        if (!S3Xml::parseObjects(response.body, &page))
            return Status::failure(Operation::Error::Unknown,
                                   QStringLiteral("the object list of %1 cannot be read")
                                       .arg(m_client.settings().bucket));
        appendListed(page.objects, objects);
        if (page.truncated)
            *next = page.nextMarker;
        return Status::success();
    });
}

Status S3Backend::stat(const QString& name, ObjectInfo* info)
{
    Status status = ObjectName::check(name);
    if (status.ok())
        status = needBucket();
    if (!status.ok())
        return status;
    S3Client::Request request;
    request.method = "HEAD";
    request.key = name;
    S3Client::Response response;
    status = m_client.send(request, &response);
    if (!status.ok())
        return status;
    *info = {name, response.headers.value("content-length").toLongLong(),
             parseHttpDate(response.headers.value("last-modified"))};
    return Status::success();
}

Status S3Backend::read(const QString& name, qint64 offset, qint64 length, QIODevice* sink)
{
    Status status = ObjectName::check(name);
    if (status.ok())
        status = needBucket();
    if (!status.ok() || length == 0)
        return status;
    S3Client::Request request;
    request.key = name;
    request.sink = sink;
    const qint64 start = qMax<qint64>(0, offset);
    if (start > 0 || length > 0) {
        const QByteArray end = length > 0 ? QByteArray::number(start + length - 1) : QByteArray();
        request.headers.append({"Range", "bytes=" + QByteArray::number(start) + '-' + end});
    }
    S3Client::Response response;
    status = m_client.send(request, &response);
    // A range that starts beyond the end holds nothing.
    if (response.status == 416)
        return Status::success();
    return status;
}

Status S3Backend::put(const QString& name, const QByteArray& body)
{
    S3Client::Request request;
    request.method = "PUT";
    request.key = name;
    request.body = body;
    S3Client::Response response;
    return m_client.send(request, &response);
}

Status S3Backend::write(const QString& name, QIODevice* source, qint64 size)
{
    Status status = ObjectName::check(name);
    if (status.ok())
        status = needBucket();
    if (!status.ok())
        return status;
    const qint64 firstLimit = size < 0 ? m_partSize : qMin(size, m_partSize);
    QByteArray first;
    status = UploadSource::read(source, firstLimit, &first);
    if (!status.ok())
        return status;
    qint64 remaining = size < 0 ? -1 : size - first.size();
    if (size >= 0 && first.size() < firstLimit)
        return Status::failure(
            Operation::Error::Unknown,
            QStringLiteral("the data ended after %1 of %2 bytes").arg(first.size()).arg(size));
    QByteArray second;
    if (remaining != 0) {
        status = UploadSource::read(
            source, remaining < 0 ? m_partSize : qMin(remaining, m_partSize), &second);
        if (!status.ok())
            return status;
        if (remaining > 0)
            remaining -= second.size();
    }
    if (second.isEmpty())
        return put(name, first);
    return putInParts(name, first, second, source, remaining);
}

Status S3Backend::putInParts(const QString& name, QByteArray first, QByteArray second,
                             QIODevice* source, qint64 remaining)
{
    S3Client::Request request;
    request.method = "POST";
    request.key = name;
    request.query = {{QStringLiteral("uploads"), QString()}};
    S3Client::Response response;
    Status status = m_client.send(request, &response);
    if (!status.ok())
        return status;
    const QString uploadId = S3Xml::parseUploadId(response.body);
    if (uploadId.isEmpty())
        return Status::failure(Operation::Error::Unknown,
                               QStringLiteral("the server started no upload of %1").arg(name));
    QList<QByteArray> etags;
    status =
        uploadParts(name, uploadId, std::move(first), std::move(second), source, remaining, &etags);
    if (status.ok()) {
        request = {};
        request.method = "POST";
        request.key = name;
        request.query = {{QStringLiteral("uploadId"), uploadId}};
        request.body = S3Xml::completeUpload(etags);
        request.contentType = "application/xml";
        status = m_client.send(request, &response);
        // The service may fail the completion in a document sent with 200.
        S3Xml::Error error;
        if (status.ok() && S3Xml::parseError(response.body, &error))
            status = Status::failure(Operation::Error::Unknown,
                                     QStringLiteral("%1 (%2)").arg(error.message, error.code));
    }
    if (status.ok())
        return status;
    // Parts of an upload that is neither completed nor aborted are stored,
    // and paid for, until someone aborts it.
    request = {};
    request.method = "DELETE";
    request.key = name;
    request.query = {{QStringLiteral("uploadId"), uploadId}};
    m_client.send(request, &response);
    return status;
}

Status S3Backend::uploadParts(const QString& name, const QString& uploadId, QByteArray first,
                              QByteArray second, QIODevice* source, qint64 remaining,
                              QList<QByteArray>* etags)
{
    QByteArray part = std::move(first);
    QByteArray next = std::move(second);
    while (!part.isEmpty()) {
        S3Client::Request request;
        request.method = "PUT";
        request.key = name;
        request.query = {{QStringLiteral("partNumber"), QString::number(etags->size() + 1)},
                         {QStringLiteral("uploadId"), uploadId}};
        request.body = std::move(part);
        S3Client::Response response;
        Status status = m_client.send(request, &response);
        if (!status.ok())
            return status;
        etags->append(response.headers.value("etag"));
        part = std::move(next);
        next.clear();
        if (part.isEmpty() || remaining == 0)
            continue;
        status = UploadSource::read(
            source, remaining < 0 ? m_partSize : qMin(remaining, m_partSize), &next);
        if (!status.ok())
            return status;
        if (remaining > 0)
            remaining -= next.size();
    }
    if (remaining > 0)
        return Status::failure(
            Operation::Error::Unknown,
            QStringLiteral("the data of %1 ended %2 bytes early").arg(name).arg(remaining));
    return Status::success();
}

Status S3Backend::remove(const QString& name)
{
    Status status = ObjectName::check(name);
    if (status.ok())
        status = needBucket();
    if (!status.ok())
        return status;
    S3Client::Request request;
    request.method = "DELETE";
    request.key = name;
    S3Client::Response response;
    status = m_client.send(request, &response);
    return status.error == Operation::Error::ObjectNotFound ? Status::success() : status;
}

} // namespace Kel::Cloud
