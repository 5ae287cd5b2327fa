#pragma once

namespace Orv::Service {

class AccountCatalog;
class HandlerRegistry;

// The storage accounts, as the named command "StorageGetConnection".
class StorageConnectionHandler
{
public:
    // The catalog must outlive the registry.
    static void install(HandlerRegistry& registry, AccountCatalog& catalog);
};

} // namespace Orv::Service
