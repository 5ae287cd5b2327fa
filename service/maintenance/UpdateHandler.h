#pragma once

#include "service/channel/NamedResponder.h"

#include <QJsonObject>
#include <QObject>
#include <QThreadPool>
#include <QUuid>
#include <atomic>
#include <functional>

namespace Orv::Service {

class HandlerRegistry;

// The update of the client: "GetProductInformation" reads the product feed
// the branding names (the latest build, its address, size and SHA-256); the
// Update notification has the service download that build into the data
// folder's "updates", reporting UpdateProgress notifications to every
// subscribed client as it goes. The package is written under a temporary name
// and given its own name only once its size and SHA-256 match the feed's, so
// that a download cut off or damaged never looks like a package. Progress
// reaches 100 % only then; a failure is one notification with Error set.
class UpdateHandler : public QObject
{
    Q_OBJECT
public:
    using Broadcast = std::function<void(const QUuid& type, const QJsonObject& message)>;

    UpdateHandler(const QString& folder, Broadcast broadcast, QObject* parent = nullptr);
    // Stops a download under way and waits for it.
    ~UpdateHandler() override;

    void install(HandlerRegistry& registry);

private:
    struct Build
    {
        QString url;
        qint64 size = 0;
        QByteArray sha256;
    };

    void productInformation(const NamedResponder& responder);
    void update(const QJsonObject& message);
    // Runs on the worker: the download and its checks; empty or the reason.
    QString download(const Build& build, QString* package);
    void report(qint64 count, qint64 size, const QString& error, const QString& message = {});

    QString m_folder;
    Broadcast m_broadcast;
    bool m_downloading = false;
    std::atomic<bool> m_stopping{false};
    QThreadPool m_pool;
};

} // namespace Orv::Service
