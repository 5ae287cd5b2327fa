#pragma once

#include "kelCloud/HttpTransport.h"
#include "kelCloud/Signature.h"
#include "kelCloud/Status.h"
#include "kelNetwork/ProxySettings.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QPair>
#include <QString>

class QIODevice;

namespace Kel::Cloud {

// Sends S3 requests to one bucket's service over one kept-alive connection:
// addresses them, signs them (version 4 by the HTTP library, version 2 here),
// trusts what the network library trusts, repeats those the server asks to
// repeat, and turns failures into a Status worded with the server's reason.
class S3Client
{
public:
    struct Settings
    {
        QString scheme = QStringLiteral("https");
        QString host;
        int port = 0; // 0: the scheme's
        bool virtualHosted = false;
        QString bucket;
        QString region;
        Info::AmazonS3Like::Signature::Version signature = Info::AmazonS3Like::Signature::AWS4;
        QByteArray accessKey;
        QByteArray secretKey;
        Kel::Network::ProxySettings proxy;
        int retryAttempts = 0;
        int retryInterval = 0; // milliseconds
    };

    struct Request
    {
        QByteArray method = "GET";
        // To the service itself (the bucket listing) rather than the bucket.
        bool toService = false;
        // The object's name; empty for the bucket.
        QString key;
        QMap<QString, QString> query;
        QList<QPair<QByteArray, QByteArray>> headers;
        // Sent with PUT and POST.
        QByteArray body;
        QByteArray contentType = "application/octet-stream";
        // A successful answer's body goes here instead of Response::body.
        QIODevice* sink = nullptr;
    };

    using Response = HttpTransport::Response;

    explicit S3Client(const Settings& settings);

    Status send(const Request& request, Response* response);
    const Settings& settings() const { return m_settings; }
    // The URL the request goes to.
    QByteArray url(const Request& request) const;

private:
    HttpTransport::Outcome attempt(const Request& request, Response* response, Status* status);
    QList<QByteArray> headersFor(const Request& request) const;
    QString authority(const Request& request) const;
    QByteArray path(const Request& request) const;
    QString hostOf(const Request& request) const;
    bool usesVirtualHost(const Request& request) const;
    Status httpFailure(const Request& request, const Response& response) const;
    bool followRegion(const Response& response);

    Settings m_settings;
    HttpTransport m_transport;
};

} // namespace Kel::Cloud
