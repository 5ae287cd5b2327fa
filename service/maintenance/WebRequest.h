#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <functional>

class QIODevice;

namespace Orv::Service::Web {

// One call to the maker's web services (support, product information,
// managed service). Certificates are checked against what the network
// library trusts (the system's authorities and the instance's trusted store)
// and the installation's proxy is used. Blocking: run it on a worker thread.
struct Reply
{
    // The HTTP status; 0 when no answer arrived.
    int status = 0;
    // The answer's body, unless it went to the download's sink.
    QByteArray body;
    // Why no answer arrived, or why the answer was refused.
    QString error;

    bool ok() const { return error.isEmpty() && status >= 200 && status < 300; }
    // The reason of a failed call, for the administrator.
    QString failure(const QString& what) const;
};

// A request with a small body and a small answer, over within timeoutMs.
Reply send(const QByteArray& method, const QString& url, const QList<QByteArray>& headers,
           const QByteArray& body, int timeoutMs);

// POSTs the device's content (read as it goes, never whole in memory).
Reply upload(const QString& url, const QList<QByteArray>& headers, QIODevice* source);

// Called with the bytes received so far and the size the server announced
// (0 when unknown); false stops the transfer.
using Progress = std::function<bool(qint64 done, qint64 total)>;

// GETs url into sink; a successful answer's body goes there and nowhere else.
// A body larger than maxBytes stops the transfer.
Reply download(const QString& url, QIODevice* sink, qint64 maxBytes, const Progress& progress);

} // namespace Orv::Service::Web
