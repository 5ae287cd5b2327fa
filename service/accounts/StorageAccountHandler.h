#pragma once

#include <QJsonObject>
#include <QString>

namespace Orv::Service {

class AccountCatalog;
class HandlerRegistry;
class RepositorySync;
class StorageState;

// Checking, saving and deleting storage accounts: the named "StorageCheck",
// the typed SaveStorage and the named "StorageDeleteFileSystem". The command
// line has the service check a configuration against the storage (with the
// certificates the administrator trusts) before it asks to save it; here the
// record is completed, its secrets sealed and the file written. Deleting removes the account's
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
    static void installCheck(HandlerRegistry& registry);

    AccountCatalog& m_catalog;
    StorageState& m_state;
    const RepositorySync& m_sync;
};

} // namespace Orv::Service
