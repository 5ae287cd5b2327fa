#pragma once

#include "kelCloud/HttpTransport.h"
#include "kelNetwork/ProxySettings.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>

class QIODevice;

namespace Kel::Cloud {

// Talks Backblaze B2's native API for one application key: authorises the
// key (again when the token expires), calls the JSON operations, downloads
// by name and uploads to the upload URLs the service hands out. Answers the
// service asks to repeat are repeated with back-off; an upload that fails so
// is repeated on a fresh upload URL, as the service wants.
class B2Client
{
public:
    struct Settings
    {
        // Where keys are authorised; the account's own API and download
        // hosts come with the answer.
        QByteArray authorizeUrl = "https://api.backblazeb2.com";
        QString keyId;
        QString applicationKey;
        Kel::Network::ProxySettings proxy;
        int retryAttempts = 0;
        int retryInterval = 0; // milliseconds
    };

    // What authorising the key tells.
    struct Account
    {
        QString accountId;
        QByteArray token;
        QByteArray apiUrl;
        QByteArray downloadUrl;
        // Set when the key may reach one bucket only.
        QString allowedBucketId;
        QString allowedBucketName;
        qint64 minimumPartSize = 5000000;
    };

    // Where one upload goes: a file's (uploadUrl) or a large file part's.
    struct UploadTarget
    {
        // "b2_get_upload_url" with bucketId, or "b2_get_upload_part_url"
        // with fileId.
        const char* operation = "b2_get_upload_url";
        QJsonObject request;
    };

    using Response = HttpTransport::Response;

    explicit B2Client(const Settings& settings);

    // Authorises the key when that has not happened yet.
    Status authorize();
    const Account& account() const { return m_account; }

    // POSTs a JSON operation ("b2_list_buckets", ...) of the API.
    Status call(const char* operation, const QJsonObject& request, QJsonObject* answer);
    // GET or HEAD of a file by its bucket's name and its own; a successful
    // GET's body goes to the sink.
    Status download(const QByteArray& method, const QString& bucketName, const QString& name,
                    const QList<QByteArray>& headers, QIODevice* sink, Response* response);
    // POSTs the data with the headers (file name or part number) to an upload
    // URL of the target, with its SHA-1.
    Status upload(const UploadTarget& target, const QList<QByteArray>& headers,
                  const QByteArray& data, QJsonObject* answer);

    // The file name as B2 wants it in headers and download paths.
    static QByteArray encodeName(const QString& name);

private:
    using Build = std::function<HttpTransport::Request()>;

    Status authorizeNow();
    // Sends, repeating what the service asks to repeat, and authorising
    // again once when the token has expired.
    Status exchange(const Build& build, bool authorized, Response* response);
    HttpTransport::Outcome attempt(const HttpTransport::Request& request, Response* response,
                                   Status* status);

    Settings m_settings;
    Account m_account;
    HttpTransport m_transport;
};

} // namespace Kel::Cloud
