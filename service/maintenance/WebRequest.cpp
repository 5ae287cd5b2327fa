#include "service/maintenance/WebRequest.h"

#include "kelCloud/HttpTransport.h"
#include "orvCommon/ProxyRecord.h"

#include <QIODevice>
#include <curl/curl.h>

namespace Orv::Service::Web {

namespace {

using Kel::Cloud::HttpTransport;

Kel::Network::ProxySettings installationProxy()
{
    const Orv::Common::ProxyRecord record = Orv::Common::proxySettings();
    Kel::Network::ProxySettings proxy;
    if (!record.enabled())
        return proxy;
    proxy.type = record.type == Orv::Common::ProxyRecord::Type::Socks5
                     ? Kel::Network::ProxySettings::Type::Socks5
                     : Kel::Network::ProxySettings::Type::Http;
    proxy.host = record.address;
    proxy.port = record.port;
    if (record.useAuth) {
        proxy.user = record.user;
        proxy.password = record.plainPassword().value_or(QString());
    }
    return proxy;
}

Reply perform(HttpTransport::Request request)
{
    HttpTransport transport(installationProxy());
    HttpTransport::Response response;
    Kel::Cloud::Status status;
    transport.perform(request, &response, &status);
    Reply reply;
    reply.status = response.status;
    reply.body = response.body;
    if (!status.ok())
        reply.error = status.message;
    return reply;
}

size_t readSource(char* buffer, size_t size, size_t count, void* context)
{
    auto* source = static_cast<QIODevice*>(context);
    const qint64 got = source->read(buffer, static_cast<qint64>(size * count));
    return got < 0 ? CURL_READFUNC_ABORT : static_cast<size_t>(got);
}

struct DownloadWatch
{
    const Progress* progress = nullptr;
    qint64 maxBytes = 0;
};

int watchDownload(void* context, curl_off_t total, curl_off_t done, curl_off_t, curl_off_t)
{
    const auto* watch = static_cast<const DownloadWatch*>(context);
    if (done > watch->maxBytes)
        return 1;
    return (*watch->progress)(done, total) ? 0 : 1;
}

} // namespace

QString Reply::failure(const QString& what) const
{
    if (!error.isEmpty())
        return QStringLiteral("%1: %2").arg(what, error);
    QString detail = QString::fromUtf8(body.left(200)).simplified();
    if (!detail.isEmpty())
        detail.prepend(QStringLiteral(": "));
    return QStringLiteral("%1: the server answered %2%3").arg(what).arg(status).arg(detail);
}

Reply send(const QByteArray& method, const QString& url, const QList<QByteArray>& headers,
           const QByteArray& body, int timeoutMs)
{
    HttpTransport::Request request;
    request.method = method;
    request.url = url.toUtf8();
    request.headers = headers;
    request.body = body;
    request.prepare = [timeoutMs](CURL* curl) {
        curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(timeoutMs));
    };
    return perform(request);
}

Reply upload(const QString& url, const QList<QByteArray>& headers, QIODevice* source)
{
    HttpTransport::Request request;
    request.method = "POST";
    request.url = url.toUtf8();
    request.headers = headers;
    request.prepare = [source](CURL* curl) {
        // No body in memory: the library reads the file as it sends it.
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, static_cast<const char*>(nullptr));
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(source->size()));
        curl_easy_setopt(curl, CURLOPT_READFUNCTION, &readSource);
        curl_easy_setopt(curl, CURLOPT_READDATA, source);
    };
    return perform(request);
}

Reply download(const QString& url, QIODevice* sink, qint64 maxBytes, const Progress& progress)
{
    DownloadWatch watch{&progress, maxBytes};
    HttpTransport::Request request;
    request.url = url.toUtf8();
    request.sink = sink;
    request.prepare = [&watch](CURL* curl) {
        curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
        curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, &watchDownload);
        curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &watch);
    };
    return perform(request);
}

} // namespace Orv::Service::Web
