#pragma once

#include <QHash>
#include <QMutex>
#include <QObject>
#include <QStringList>
#include <QThreadPool>
#include <QUuid>
#include <QVariantMap>
#include <atomic>
#include <functional>
#include <memory>

namespace Orv::Service {

class AccountCatalog;
class HandlerRegistry;
class StorageState;

// Synchronises accounts with their storage, as the named command
// "SynchronizeRepository": a pass over the storage on a worker thread finds
// the space used and the backup prefixes present, and the result goes to the
// database. The request is answered as soon as the pass starts; the account
// reports "SyncStatus" true until it ends. One pass per account at a time.
class RepositorySync : public QObject
{
    Q_OBJECT
public:
    struct Result
    {
        // Empty when the pass succeeded.
        QString error;
        qint64 spaceUsed = 0;
        QStringList prefixes;
    };
    // Walks one storage; runs on a worker thread and should give up soon
    // after cancelled becomes true.
    using Scanner =
        std::function<Result(const QVariantMap& config, const std::atomic_bool& cancelled)>;

    // The catalog and the state must outlive this object.
    RepositorySync(AccountCatalog& catalog, StorageState& state, Scanner scanner,
                   QObject* parent = nullptr);
    // Asks running passes to stop and waits for them.
    ~RepositorySync() override;

    void install(HandlerRegistry& registry);

    bool isRunning(const QUuid& accountId) const { return m_running.contains(accountId); }
    // Changes whenever a pass starts or ends.
    quint64 generation() const { return m_generation; }
    // Starts a pass over the stored account; false with the reason when it
    // cannot start.
    bool start(const QUuid& accountId, QString* error);
    // Ends every pass; used when the service stops.
    void stop();

signals:
    void passEnded(const QUuid& accountId, const QString& error);

private:
    void onPassEnded(const QUuid& accountId, const Result& result);

    AccountCatalog& m_catalog;
    StorageState& m_state;
    Scanner m_scanner;
    QHash<QUuid, std::shared_ptr<std::atomic_bool>> m_running;
    quint64 m_generation = 1;
    QThreadPool m_pool;
};

} // namespace Orv::Service
