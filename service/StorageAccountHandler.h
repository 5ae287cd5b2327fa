#pragma once

#include <QJsonObject>
#include <QString>

namespace Orv::Service {

class AccountCatalog;
class HandlerRegistry;
class RepositorySync;
class StorageState;

// Saving and deleting storage accounts: the typed SaveStorage and the named
// "StorageDeleteFileSystem". The command line has checked the configuration
// against the storage before it asks; here the record is completed, its
// secrets sealed and the file written. Deleting removes the account's
// configuration and what the service remembers of its storage, never the
// backup data in the storage. A managed installation keeps only file-system
// accounts under the client's control.
class StorageAccountHandler
{
public:
    // Everything given must outlive this handler, and this handler the registry.
    StorageAccountHandler(AccountCatalog& catalog, StorageState& state, const RepositorySync& sync)
        : m_catalog(catalog), m_state(state), m_sync(sync)
    {
    }
    StorageAccountHandler(const StorageAccountHandler&) = delete;
    StorageAccountHandler& operator=(const StorageAccountHandler&) = delete;

    void install(HandlerRegistry& registry);

private:
    AccountCatalog& m_catalog;
    StorageState& m_state;
    const RepositorySync& m_sync;
};

} // namespace Orv::Service
