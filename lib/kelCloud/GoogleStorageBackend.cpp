#include "kelCloud/GoogleStorageBackend.h"

#include "kelCloud/Config.h"
#include "kelCloud/ConfigReader.h"
#include "kelCloud/Listing.h"
#include "kelCloud/ObjectName.h"
#include "kelCloud/S3Uri.h"
#include "kelCloud/S3Xml.h"
#include "kelCloud/UploadSource.h"
#include "kelNetwork/Endpoint.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#ifndef ORV_GOOGLE_CLIENT_ID
#define ORV_GOOGLE_CLIENT_ID ""
#endif
#ifndef ORV_GOOGLE_CLIENT_SECRET
#define ORV_GOOGLE_CLIENT_SECRET ""
#endif

namespace Kel::Cloud {

namespace {

// Installed applications authorise the program's own OAuth client, whose id
// and secret are given to the build; a configuration may name another.
const char* const BuiltInClientId = ORV_GOOGLE_CLIENT_ID;
const char* const BuiltInClientSecret = ORV_GOOGLE_CLIENT_SECRET;
const char* const DefaultRedirectUri = "http://127.0.0.1";

Status invalid(const QString& message)
{
    return Status::failure(Operation::Error::InvalidConfiguration, message);
}

// The key as the service account's JSON key file has it, or PEM text with
// the e-mail beside it.
Status readServiceAccount(const ConfigReader& reader, GoogleTokenSource::Settings* tokens,
                          QString* projectId)
{
    const QByteArray key = reader.raw(Config::PrivateKey).trimmed().toUtf8();
    tokens->serviceEmail = reader.text(Config::ServiceEmail);
    if (key.startsWith('{')) {
        const QJsonObject file = QJsonDocument::fromJson(key).object();
        tokens->privateKeyPem = file.value(QStringLiteral("private_key")).toString().toUtf8();
        if (tokens->serviceEmail.isEmpty())
            tokens->serviceEmail = file.value(QStringLiteral("client_email")).toString();
        if (projectId->isEmpty())
            *projectId = file.value(QStringLiteral("project_id")).toString();
        const QString tokenUri = file.value(QStringLiteral("token_uri")).toString();
        if (!tokenUri.isEmpty())
            tokens->tokenUrl = tokenUri.toUtf8();
    } else {
        tokens->privateKeyPem = key;
    }
    if (tokens->privateKeyPem.isEmpty())
        return invalid(QStringLiteral("the service account's private key is needed"));
    if (tokens->serviceEmail.isEmpty())
        return invalid(QStringLiteral("the service account's e-mail is needed"));
    return Status::success();
}

Status readInstalledApp(const ConfigReader& reader, GoogleTokenSource::Settings* tokens)
{
    tokens->refreshToken = reader.raw(Config::RefreshToken).trimmed();
    tokens->authCode = reader.raw(Config::AuthCode).trimmed();
    tokens->clientId = reader.has(Config::OAuthClientId) ? reader.text(Config::OAuthClientId)
                                                         : QLatin1String(BuiltInClientId);
    tokens->clientSecret = reader.has(Config::OAuthClientSecret)
                               ? reader.raw(Config::OAuthClientSecret).trimmed()
                               : QLatin1String(BuiltInClientSecret);
    tokens->redirectUri = reader.has(Config::OAuthRedirectUri)
                              ? reader.text(Config::OAuthRedirectUri)
                              : QLatin1String(DefaultRedirectUri);
    if (tokens->refreshToken.isEmpty() && tokens->authCode.isEmpty())
        return invalid(QStringLiteral("an authorisation code or a refresh token is needed"));
    if (tokens->clientId.isEmpty())
        return invalid(QStringLiteral("no OAuth client is configured for installed applications"));
    return Status::success();
}

Status readUrl(const ConfigReader& reader, const char* key, QByteArray* url)
{
    const QString text = reader.text(key);
    if (text.isEmpty())
        return Status::success();
    const Kel::Network::Endpoint endpoint = Kel::Network::Endpoint::parse(text);
    bool flagOk = true;
    const bool useSsl = reader.flag(Config::UseSsl, true, &flagOk);
    const QString scheme = !endpoint.scheme.isEmpty() ? endpoint.scheme
                           : useSsl                   ? QStringLiteral("https")
                                                      : QStringLiteral("http");
    if (!endpoint.isValid() ||
        (scheme != QLatin1String("http") && scheme != QLatin1String("https")))
        return invalid(QStringLiteral("\"%1\" is not an http or https address").arg(text));
    const QString authority = endpoint.port > 0 ? endpoint.authority(0) : endpoint.urlHost();
    QString path = endpoint.path;
    while (path.endsWith(QLatin1Char('/')))
        path.chop(1);
    *url = (scheme + QStringLiteral("://") + authority + path).toUtf8();
    return Status::success();
}

QDateTime parseTime(const QJsonValue& value)
{
    return S3Xml::parseTime(value.toString());
}

} // namespace

GoogleStorageBackend::GoogleStorageBackend(const QByteArray& serviceUrl, const QString& bucket,
                                           const QString& projectId,
                                           const GoogleTokenSource::Settings& tokens,
                                           qint64 chunkSize)
    : m_client(serviceUrl, bucket, tokens), m_projectId(projectId),
      m_configuredRefreshToken(tokens.refreshToken), m_chunkSize(chunkSize)
{
}

std::unique_ptr<Backend> GoogleStorageBackend::create(const QVariantMap& config, Status* status)
{
    const ConfigReader reader(config);
    GoogleTokenSource::Settings tokens;
    if (!GoogleAuth::parse(reader.text(Config::AuthType), &tokens.type)) {
        *status = invalid(QStringLiteral("unknown authentication type \"%1\"")
                              .arg(reader.text(Config::AuthType)));
        return nullptr;
    }
    QString projectId = reader.text(Config::ProjectId);
    *status = tokens.type == GoogleAuth::ServiceAcc
                  ? readServiceAccount(reader, &tokens, &projectId)
              : tokens.type == GoogleAuth::InstallApp
                  ? readInstalledApp(reader, &tokens)
                  : invalid(QStringLiteral("HMAC keys are served by the S3 backend"));
    QByteArray serviceUrl = GoogleStorageClient::DefaultServiceUrl;
    if (status->ok())
        *status = readUrl(reader, Config::Endpoint, &serviceUrl);
    if (status->ok())
        *status = readUrl(reader, Config::TokenUrl, &tokens.tokenUrl);
    if (!status->ok())
        return nullptr;
    tokens.proxy = reader.proxy();
    tokens.retryAttempts = reader.retryAttempts();
    tokens.retryInterval = reader.retryInterval();
    bool ok = true;
    const qint64 chunkSize = reader.number(Config::PartSize, DefaultChunkSize, &ok);
    if (!ok || chunkSize < ChunkUnit || chunkSize > MaxChunkSize || chunkSize % ChunkUnit != 0) {
        *status = invalid(QStringLiteral("the part size must be a multiple of %1 bytes up to %2")
                              .arg(ChunkUnit)
                              .arg(MaxChunkSize));
        return nullptr;
    }
    return std::unique_ptr<Backend>(new GoogleStorageBackend(
        serviceUrl, reader.text(Config::Container), projectId, tokens, chunkSize));
}

QVariantMap GoogleStorageBackend::configChanges() const
{
    const QString refreshToken = m_client.tokens().refreshToken();
    if (refreshToken.isEmpty() || refreshToken == m_configuredRefreshToken)
        return {};
    return {{QLatin1String(Config::RefreshToken), refreshToken}};
}

Status GoogleStorageBackend::needBucket() const
{
    if (m_client.bucket().isEmpty())
        return invalid(QStringLiteral("no bucket is configured"));
    return Status::success();
}

QByteArray GoogleStorageBackend::objectPath(const QString& name) const
{
    // The name is one path segment: its "/" are encoded too.
    return "/storage/v1/b/" + S3Uri::encode(m_client.bucket(), false) + "/o/" +
           S3Uri::encode(name, false);
}

Status GoogleStorageBackend::check()
{
    Status status = needBucket();
    if (!status.ok())
        return status;
    GoogleStorageClient::Request request;
    request.path = "/storage/v1/b/" + S3Uri::encode(m_client.bucket(), false);
    GoogleStorageClient::Response response;
    status = m_client.send(request, &response);
    if (!status.ok())
        return status;
    const QString probe = ObjectName::reserved(QStringLiteral("probe"));
    status = uploadWhole(probe, QByteArrayLiteral("probe"));
    return status.ok() ? deleteObject(probe) : status;
}

Status GoogleStorageBackend::listPages(GoogleStorageClient::Request request,
                                       QList<ObjectInfo>* entries)
{
    return followPages([&](const QString& pageToken, QString* next) {
        if (!pageToken.isEmpty())
            request.query.insert(QStringLiteral("pageToken"), pageToken);
        GoogleStorageClient::Response response;
        const Status status = m_client.send(request, &response);
        if (!status.ok())
            return status;
        const QJsonObject page = QJsonDocument::fromJson(response.body).object();
        for (const QJsonValue& value : page.value(QStringLiteral("items")).toArray()) {
            const QJsonObject item = value.toObject();
            ObjectInfo entry;
            entry.name = item.value(QStringLiteral("name")).toString();
            entry.size = item.contains(QStringLiteral("size"))
                             ? item.value(QStringLiteral("size")).toString().toLongLong()
                             : -1;
            entry.modified = parseTime(item.value(item.contains(QStringLiteral("updated"))
                                                      ? QStringLiteral("updated")
                                                      : QStringLiteral("timeCreated")));
            entries->append(entry);
        }
        *next = page.value(QStringLiteral("nextPageToken")).toString();
        return Status::success();
    });
}

Status GoogleStorageBackend::listContainers(QList<ObjectInfo>* containers)
{
    containers->clear();
    if (m_projectId.isEmpty())
        return invalid(QStringLiteral("listing buckets needs the project id"));
    GoogleStorageClient::Request request;
    request.path = "/storage/v1/b";
    request.query = {
        {QStringLiteral("project"), m_projectId},
        {QStringLiteral("fields"), QStringLiteral("items(name,timeCreated),nextPageToken")}};
    return listPages(request, containers);
}

Status GoogleStorageBackend::list(const QString& prefix, QList<ObjectInfo>* objects)
{
    objects->clear();
    Status status = ObjectName::checkPrefix(prefix);
    if (status.ok())
        status = needBucket();
    if (!status.ok())
        return status;
    GoogleStorageClient::Request request;
    request.path = "/storage/v1/b/" + S3Uri::encode(m_client.bucket(), false) + "/o";
    request.query = {
        {QStringLiteral("fields"), QStringLiteral("items(name,size,updated),nextPageToken")}};
    if (!prefix.isEmpty())
        request.query.insert(QStringLiteral("prefix"), prefix);
    QList<ObjectInfo> all;
    status = listPages(request, &all);
    appendListed(all, objects);
    return status;
}

Status GoogleStorageBackend::stat(const QString& name, ObjectInfo* info)
{
    Status status = ObjectName::check(name);
    if (status.ok())
        status = needBucket();
    if (!status.ok())
        return status;
    GoogleStorageClient::Request request;
    request.path = objectPath(name);
    request.query = {{QStringLiteral("fields"), QStringLiteral("name,size,updated")}};
    request.forObject = true;
    GoogleStorageClient::Response response;
    status = m_client.send(request, &response);
    if (!status.ok())
        return status;
    const QJsonObject object = QJsonDocument::fromJson(response.body).object();
    *info = {name, object.value(QStringLiteral("size")).toString().toLongLong(),
             parseTime(object.value(QStringLiteral("updated")))};
    return Status::success();
}

Status GoogleStorageBackend::read(const QString& name, qint64 offset, qint64 length,
                                  QIODevice* sink)
{
    Status status = ObjectName::check(name);
    if (status.ok())
        status = needBucket();
    if (!status.ok() || length == 0)
        return status;
    GoogleStorageClient::Request request;
    request.path = objectPath(name);
    request.query = {{QStringLiteral("alt"), QStringLiteral("media")}};
    request.forObject = true;
    request.sink = sink;
    const qint64 start = qMax<qint64>(0, offset);
    if (start > 0 || length > 0) {
        const QByteArray end = length > 0 ? QByteArray::number(start + length - 1) : QByteArray();
        request.headers << "Range: bytes=" + QByteArray::number(start) + '-' + end;
    }
    GoogleStorageClient::Response response;
    status = m_client.send(request, &response);
    // A range that starts beyond the end holds nothing.
    if (response.status == 416)
        return Status::success();
    return status;
}

Status GoogleStorageBackend::write(const QString& name, QIODevice* source, qint64 size)
{
    Status status = ObjectName::check(name);
    if (status.ok())
        status = needBucket();
    if (!status.ok())
        return status;
    UploadSource data(source, size);
    QByteArray first;
    QByteArray second;
    status = data.next(m_chunkSize, &first);
    if (status.ok())
        status = data.next(m_chunkSize, &second);
    if (!status.ok())
        return status;
    if (second.isEmpty())
        return uploadWhole(name, first);
    return uploadResumable(name, std::move(first), std::move(second), &data);
}

Status GoogleStorageBackend::uploadWhole(const QString& name, const QByteArray& data)
{
    GoogleStorageClient::Request request;
    request.method = "POST";
    request.path = "/upload/storage/v1/b/" + S3Uri::encode(m_client.bucket(), false) + "/o";
    request.query = {{QStringLiteral("uploadType"), QStringLiteral("media")},
                     {QStringLiteral("name"), name}};
    request.headers << "Content-Type: application/octet-stream";
    request.body = data;
    GoogleStorageClient::Response response;
    return m_client.send(request, &response);
}

Status GoogleStorageBackend::uploadResumable(const QString& name, QByteArray first,
                                             QByteArray second, UploadSource* source)
{
    GoogleStorageClient::Request request;
    request.method = "POST";
    request.path = "/upload/storage/v1/b/" + S3Uri::encode(m_client.bucket(), false) + "/o";
    request.query = {{QStringLiteral("uploadType"), QStringLiteral("resumable")},
                     {QStringLiteral("name"), name}};
    request.headers << "X-Upload-Content-Type: application/octet-stream"
                    << "Content-Type: application/json; charset=UTF-8";
    request.body = "{}";
    GoogleStorageClient::Response response;
    Status status = m_client.send(request, &response);
    if (!status.ok())
        return status;
    const QByteArray session = response.headers.value("location");
    if (session.isEmpty())
        return Status::failure(Operation::Error::Unknown,
                               QStringLiteral("the server started no upload of %1").arg(name));
    status = uploadChunks(session, std::move(first), std::move(second), source);
    if (status.ok())
        return status;
    // An abandoned session would hold its chunks for a week.
    request = {};
    request.method = "DELETE";
    request.url = session;
    request.alsoSuccess = 499;
    m_client.send(request, &response);
    return status;
}

Status GoogleStorageBackend::uploadChunks(const QByteArray& session, QByteArray first,
                                          QByteArray second, UploadSource* source)
{
    qint64 sent = 0;
    QByteArray chunk = std::move(first);
    QByteArray next = std::move(second);
    while (!chunk.isEmpty()) {
        const bool last = next.isEmpty();
        const qint64 end = sent + chunk.size() - 1;
        GoogleStorageClient::Request request;
        request.method = "PUT";
        request.url = session;
        request.headers << "Content-Range: bytes " + QByteArray::number(sent) + '-' +
                               QByteArray::number(end) + '/' +
                               (last ? QByteArray::number(end + 1) : QByteArray("*"));
        request.body = std::move(chunk);
        // "Resume incomplete": the chunk is in, more are expected.
        request.alsoSuccess = last ? 0 : 308;
        GoogleStorageClient::Response response;
        Status status = m_client.send(request, &response);
        if (!status.ok())
            return status;
        sent = end + 1;
        chunk = std::move(next);
        next.clear();
        status = source->next(m_chunkSize, &next);
        if (!status.ok())
            return status;
    }
    return Status::success();
}

Status GoogleStorageBackend::remove(const QString& name)
{
    Status status = ObjectName::check(name);
    if (status.ok())
        status = needBucket();
    return status.ok() ? deleteObject(name) : status;
}

Status GoogleStorageBackend::deleteObject(const QString& name)
{
    GoogleStorageClient::Request request;
    request.method = "DELETE";
    request.path = objectPath(name);
    request.forObject = true;
    GoogleStorageClient::Response response;
    const Status status = m_client.send(request, &response);
    return status.error == Operation::Error::ObjectNotFound ? Status::success() : status;
}

} // namespace Kel::Cloud
