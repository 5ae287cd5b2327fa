#pragma once

#include "kelCloud/GoogleTokenSource.h"
#include "kelCloud/HttpTransport.h"

#include <QMap>

namespace Kel::Cloud {

// Sends requests of Google Cloud Storage's JSON API with an OAuth access
// token: asks for a fresh token once when the service refuses the one it
// has, repeats what the service asks to repeat, and words failures with the
// service's own reason.
class GoogleStorageClient
{
public:
    static constexpr const char* DefaultServiceUrl = "https://storage.googleapis.com";

    struct Request
    {
        QByteArray method = "GET";
        // Encoded path below the service ("/storage/v1/b/..."), or a whole
        // URL (an upload session's).
        QByteArray path;
        QByteArray url;
        // Decoded; encoded when sent.
        QMap<QString, QString> query;
        QList<QByteArray> headers;
        QByteArray body;
        QIODevice* sink = nullptr;
        // What a 404 means: no such object, rather than no such bucket.
        bool forObject = false;
        // An answer that counts as success besides 2xx (308 of upload sessions).
        int alsoSuccess = 0;
    };

    using Response = HttpTransport::Response;

    GoogleStorageClient(const QByteArray& serviceUrl, const QString& bucket,
                        const GoogleTokenSource::Settings& tokens);

    Status send(const Request& request, Response* response);
    QByteArray url(const Request& request) const;
    const QString& bucket() const { return m_bucket; }
    const GoogleTokenSource& tokens() const { return m_tokens; }

private:
    HttpTransport::Outcome attempt(const Request& request, Response* response, Status* status);
    Status failureOf(const Request& request, const Response& response) const;

    QByteArray m_serviceUrl;
    QString m_bucket;
    int m_retryAttempts;
    int m_retryInterval;
    GoogleTokenSource m_tokens;
    HttpTransport m_transport;
};

} // namespace Kel::Cloud
