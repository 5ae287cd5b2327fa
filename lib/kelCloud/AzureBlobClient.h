#pragma once

#include "kelCloud/HttpTransport.h"
#include "kelNetwork/ProxySettings.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QPair>
#include <QString>

class QIODevice;

namespace Kel::Cloud {

// Sends Blob service requests for one storage account over one kept-alive
// connection: addresses them, signs them with the account's shared key,
// repeats those the service asks to repeat, and words failures with the
// service's own error code and message.
class AzureBlobClient
{
public:
    struct Settings
    {
        QString account;
        // The account key as the portal shows it (base64).
        QByteArray key;
        // The account's blob service: "https://ACCOUNT.blob.core.windows.net",
        // or "http://127.0.0.1:10000/ACCOUNT" for path-style addresses. No
        // trailing "/".
        QByteArray serviceUrl;
        QString container;
        Kel::Network::ProxySettings proxy;
        int retryAttempts = 0;
        int retryInterval = 0; // milliseconds
    };

    struct Request
    {
        QByteArray method = "GET";
        // To the account itself (the container listing) rather than the
        // container.
        bool toService = false;
        // The blob's name; empty for the container.
        QString blob;
        // Decoded; encoded when sent.
        QMap<QString, QString> query;
        QList<QPair<QByteArray, QByteArray>> headers;
        // Sent with PUT.
        QByteArray body;
        QByteArray contentType = "application/octet-stream";
        // A successful answer's body goes here instead of Response::body.
        QIODevice* sink = nullptr;
    };

    using Response = HttpTransport::Response;

    // The service version every request asks for.
    static constexpr const char* Version = "2021-12-02";

    explicit AzureBlobClient(const Settings& settings);

    Status send(const Request& request, Response* response);
    const Settings& settings() const { return m_settings; }
    QByteArray url(const Request& request) const;
    // The path as sent, percent-encoded.
    QByteArray path(const Request& request) const;
    // The headers of the request at this time, signature included (without
    // Authorization when the key is not base64).
    QList<QPair<QByteArray, QByteArray>> signedHeaders(const Request& request,
                                                       const QDateTime& time) const;

private:
    HttpTransport::Outcome attempt(const Request& request, Response* response, Status* status);
    Status httpFailure(const Request& request, const Response& response) const;

    Settings m_settings;
    QByteArray m_servicePath;
    HttpTransport m_transport;
};

} // namespace Kel::Cloud
