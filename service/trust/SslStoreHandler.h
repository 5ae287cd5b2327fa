#pragma once

#include <QJsonObject>
#include <QThreadPool>
#include <QUuid>
#include <functional>

namespace Orv::Service {

class HandlerRegistry;
class TrustedStore;

// The trusted server-certificate store as the named commands
// "ReadFromSslStorage", "AppendToSslStorage", "WriteToSslStorage" and
// "RemoveFromSslStorage", and the fetch of a server's certificate chain,
// "GetPeerSslCertificate". Every change of the store is pushed to the
// subscribed clients as the SslStorageChange notification.
class SslStoreHandler
{
public:
    // Connects to the endpoint and returns the chain it presents as PEM text,
    // or an empty text with the reason. Runs on a worker thread.
    using PeerFetch = std::function<QByteArray(const QString& endpoint, QString* error)>;
    using Broadcast = std::function<void(const QUuid& type, const QJsonObject& message)>;

    // The store must outlive this handler, and this handler the registry.
    SslStoreHandler(TrustedStore& store, PeerFetch fetch, Broadcast broadcast)
        : m_store(store), m_fetch(std::move(fetch)), m_broadcast(std::move(broadcast))
    {
        // Fetches are rare; their threads end with them.
        m_pool.setExpiryTimeout(0);
    }
    // Waits for fetches still running.
    ~SslStoreHandler() { m_pool.waitForDone(); }
    SslStoreHandler(const SslStoreHandler&) = delete;
    SslStoreHandler& operator=(const SslStoreHandler&) = delete;

    void install(HandlerRegistry& registry);

private:
    using Change = QString (TrustedStore::*)(const QByteArray& pem, bool* changed);
    void addChange(HandlerRegistry& registry, const char* name, Change change);

    TrustedStore& m_store;
    PeerFetch m_fetch;
    Broadcast m_broadcast;
    QThreadPool m_pool;
};

} // namespace Orv::Service
