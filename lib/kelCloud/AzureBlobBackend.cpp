#include "kelCloud/AzureBlobBackend.h"

#include "kelCloud/AzureCloud.h"
#include "kelCloud/AzureXml.h"
#include "kelCloud/Config.h"
#include "kelCloud/ConfigReader.h"
#include "kelCloud/Listing.h"
#include "kelCloud/ObjectName.h"
#include "kelCloud/UploadSource.h"
#include "kelNetwork/Endpoint.h"

#include <QHostAddress>
#include <QLocale>

namespace Kel::Cloud {

namespace {

Status invalid(const QString& message)
{
    return Status::failure(Operation::Error::InvalidConfiguration, message);
}

// Emulators and local gateways serve many accounts on one address and take
// the account as the first part of the path.
bool servesPathStyle(const QString& host)
{
    return host == QLatin1String("localhost") || !QHostAddress(host).isNull();
}

Status readServiceUrl(const ConfigReader& reader, const QString& account, QByteArray* url)
{
    const QString typeName = reader.text(Config::AzureType);
    const AzureCloud* cloud =
        typeName.isEmpty() ? &AzureCloud::defaultCloud() : AzureCloud::find(typeName);
    if (!cloud)
        return invalid(QStringLiteral("unknown Azure type \"%1\" (known: %2)")
                           .arg(typeName, AzureCloud::names().join(QStringLiteral(", "))));
    bool flagOk = true;
    const bool useSsl = reader.flag(Config::UseSsl, true, &flagOk);
    if (!flagOk)
        return invalid(QStringLiteral("UseSSL must be true or false, not \"%1\"")
                           .arg(reader.text(Config::UseSsl)));
    const QString defaultScheme = useSsl ? QStringLiteral("https") : QStringLiteral("http");
    if (!cloud->needsEndpoint()) {
        *url = QStringLiteral("%1://%2.%3").arg(defaultScheme, account, cloud->blobDomain).toUtf8();
        return Status::success();
    }
    const QString text = reader.text(Config::Endpoint);
    const Kel::Network::Endpoint endpoint = Kel::Network::Endpoint::parse(text);
    if (text.isEmpty())
        return invalid(QStringLiteral("the Azure type %1 needs an endpoint").arg(cloud->name));
    const QString scheme = endpoint.scheme.isEmpty() ? defaultScheme : endpoint.scheme;
    if (!endpoint.isValid() ||
        (scheme != QLatin1String("http") && scheme != QLatin1String("https")))
        return invalid(
            QStringLiteral("the endpoint \"%1\" is not an http or https address").arg(text));
    QString path = endpoint.path;
    while (path.endsWith(QLatin1Char('/')))
        path.chop(1);
    if (path.isEmpty() && servesPathStyle(endpoint.host))
        path = QLatin1Char('/') + account;
    const QString authority = endpoint.port > 0 ? endpoint.authority(0) : endpoint.urlHost();
    *url = (scheme + QStringLiteral("://") + authority).toUtf8() +
           path.toUtf8().toPercentEncoding("/");
    return Status::success();
}

Status readSettings(const ConfigReader& reader, AzureBlobClient::Settings* settings)
{
    settings->account = reader.text(Config::AccountName);
    settings->key = reader.raw(Config::SharedKey).trimmed().toUtf8();
    settings->container = reader.text(Config::Container);
    if (settings->account.isEmpty() || settings->key.isEmpty())
        return invalid(QStringLiteral("the account name and the shared key are both needed"));
    const auto key =
        QByteArray::fromBase64Encoding(settings->key, QByteArray::AbortOnBase64DecodingErrors);
    if (!key || key.decoded.isEmpty())
        return invalid(QStringLiteral("the shared key is not a base64 account key"));
    const Status status = readServiceUrl(reader, settings->account, &settings->serviceUrl);
    if (!status.ok())
        return status;
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

// Block ids must all have the same length within a blob.
QByteArray blockId(int index)
{
    return QByteArray("orv-block-" + QByteArray::number(index).rightJustified(6, '0')).toBase64();
}

} // namespace

AzureBlobBackend::AzureBlobBackend(const AzureBlobClient::Settings& settings, qint64 blockSize)
    : m_client(settings), m_blockSize(blockSize)
{
}

std::unique_ptr<Backend> AzureBlobBackend::create(const QVariantMap& config, Status* status)
{
    const ConfigReader reader(config);
    AzureBlobClient::Settings settings;
    *status = readSettings(reader, &settings);
    if (!status->ok())
        return nullptr;
    qint64 blockSize = 0;
    QString error;
    if (!reader.partSize(DefaultBlockSize, MinBlockSize, MaxBlockSize, &blockSize, &error)) {
        *status = invalid(error);
        return nullptr;
    }
    return std::unique_ptr<Backend>(new AzureBlobBackend(settings, blockSize));
}

QByteArray AzureBlobBackend::urlOf(const QString& name) const
{
    AzureBlobClient::Request request;
    request.blob = name;
    return m_client.url(request);
}

Status AzureBlobBackend::needContainer() const
{
    if (m_client.settings().container.isEmpty())
        return invalid(QStringLiteral("no container is configured"));
    return Status::success();
}

Status AzureBlobBackend::check()
{
    Status status = needContainer();
    if (!status.ok())
        return status;
    AzureBlobClient::Request request;
    request.query = {{QStringLiteral("restype"), QStringLiteral("container")}};
    AzureBlobClient::Response response;
    status = m_client.send(request, &response);
    if (!status.ok())
        return status;
    const QString probe = ObjectName::reserved(QStringLiteral("probe"));
    status = putWhole(probe, QByteArrayLiteral("probe"));
    if (!status.ok())
        return status;
    request = {};
    request.method = "DELETE";
    request.blob = probe;
    return m_client.send(request, &response);
}

Status AzureBlobBackend::listPages(AzureBlobClient::Request request, bool blobs,
                                   QList<ObjectInfo>* entries)
{
    return followPages([&](const QString& marker, QString* next) {
        if (!marker.isEmpty())
            request.query.insert(QStringLiteral("marker"), marker);
        AzureBlobClient::Response response;
        const Status status = m_client.send(request, &response);
        if (!status.ok())
            return status;
        AzureXml::Page page;
        const bool parsed = blobs ? AzureXml::parseBlobs(response.body, &page)
                                  : AzureXml::parseContainers(response.body, &page);
        if (!parsed)
            return Status::failure(Operation::Error::Unknown,
                                   QStringLiteral("the listing from %1 cannot be read")
                                       .arg(QString::fromUtf8(m_client.url(request))));
        entries->append(page.entries);
        *next = page.nextMarker;
        return Status::success();
    });
}

Status AzureBlobBackend::listContainers(QList<ObjectInfo>* containers)
{
    containers->clear();
    AzureBlobClient::Request request;
    request.toService = true;
    request.query = {{QStringLiteral("comp"), QStringLiteral("list")}};
    return listPages(request, false, containers);
}

Status AzureBlobBackend::list(const QString& prefix, QList<ObjectInfo>* objects)
{
    objects->clear();
    Status status = ObjectName::checkPrefix(prefix);
    if (status.ok())
        status = needContainer();
    if (!status.ok())
        return status;
    AzureBlobClient::Request request;
    request.query = {{QStringLiteral("restype"), QStringLiteral("container")},
                     {QStringLiteral("comp"), QStringLiteral("list")},
                     {QStringLiteral("maxresults"), QString::number(m_pageSize)}};
    if (!prefix.isEmpty())
        request.query.insert(QStringLiteral("prefix"), prefix);
    QList<ObjectInfo> all;
    status = listPages(request, true, &all);
    appendListed(all, objects);
    return status;
}

Status AzureBlobBackend::stat(const QString& name, ObjectInfo* info)
{
    Status status = ObjectName::check(name);
    if (status.ok())
        status = needContainer();
    if (!status.ok())
        return status;
    AzureBlobClient::Request request;
    request.method = "HEAD";
    request.blob = name;
    AzureBlobClient::Response response;
    status = m_client.send(request, &response);
    if (!status.ok())
        return status;
    *info = {name, response.headers.value("content-length").toLongLong(),
             parseHttpDate(response.headers.value("last-modified"))};
    return Status::success();
}

Status AzureBlobBackend::read(const QString& name, qint64 offset, qint64 length, QIODevice* sink)
{
    Status status = ObjectName::check(name);
    if (status.ok())
        status = needContainer();
    if (!status.ok() || length == 0)
        return status;
    AzureBlobClient::Request request;
    request.blob = name;
    request.sink = sink;
    const qint64 start = qMax<qint64>(0, offset);
    if (start > 0 || length > 0) {
        const QByteArray end = length > 0 ? QByteArray::number(start + length - 1) : QByteArray();
        request.headers.append(
            qMakePair(QByteArray("x-ms-range"),
                      QByteArray("bytes=" + QByteArray::number(start) + '-' + end)));
    }
    AzureBlobClient::Response response;
    status = m_client.send(request, &response);
    // A range that starts beyond the end holds nothing.
    if (response.status == 416)
        return Status::success();
    return status;
}

Status AzureBlobBackend::putWhole(const QString& name, const QByteArray& data)
{
    AzureBlobClient::Request request;
    request.method = "PUT";
    request.blob = name;
    request.headers.append(qMakePair(QByteArray("x-ms-blob-type"), QByteArray("BlockBlob")));
    request.body = data;
    AzureBlobClient::Response response;
    return m_client.send(request, &response);
}

Status AzureBlobBackend::write(const QString& name, QIODevice* source, qint64 size)
{
    Status status = ObjectName::check(name);
    if (status.ok())
        status = needContainer();
    if (!status.ok())
        return status;
    UploadSource data(source, size);
    QByteArray first;
    QByteArray second;
    status = data.next(m_blockSize, &first);
    if (status.ok())
        status = data.next(m_blockSize, &second);
    if (!status.ok())
        return status;
    if (second.isEmpty())
        return putWhole(name, first);
    return putBlocks(name, std::move(first), std::move(second), &data);
}

Status AzureBlobBackend::putBlocks(const QString& name, QByteArray first, QByteArray second,
                                   UploadSource* source)
{
    // Blocks that are never committed leave the blob as it was, and the
    // service drops them after a week: a failure needs no clean-up.
    QList<QByteArray> ids;
    QByteArray block = std::move(first);
    QByteArray next = std::move(second);
    while (!block.isEmpty()) {
        AzureBlobClient::Request request;
        request.method = "PUT";
        request.blob = name;
        const QByteArray id = blockId(ids.size());
        request.query = {{QStringLiteral("comp"), QStringLiteral("block")},
                         {QStringLiteral("blockid"), QString::fromLatin1(id)}};
        request.body = std::move(block);
        AzureBlobClient::Response response;
        Status status = m_client.send(request, &response);
        if (!status.ok())
            return status;
        ids.append(id);
        block = std::move(next);
        next.clear();
        status = source->next(m_blockSize, &next);
        if (!status.ok())
            return status;
    }
    AzureBlobClient::Request request;
    request.method = "PUT";
    request.blob = name;
    request.query = {{QStringLiteral("comp"), QStringLiteral("blocklist")}};
    request.body = AzureXml::blockList(ids);
    request.contentType = "application/xml";
    AzureBlobClient::Response response;
    return m_client.send(request, &response);
}

Status AzureBlobBackend::remove(const QString& name)
{
    Status status = ObjectName::check(name);
    if (status.ok())
        status = needContainer();
    if (!status.ok())
        return status;
    AzureBlobClient::Request request;
    request.method = "DELETE";
    request.blob = name;
    request.headers.append(qMakePair(QByteArray("x-ms-delete-snapshots"), QByteArray("include")));
    AzureBlobClient::Response response;
    status = m_client.send(request, &response);
    return status.error == Operation::Error::ObjectNotFound ? Status::success() : status;
}

} // namespace Kel::Cloud
