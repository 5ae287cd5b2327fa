#pragma once

#include "service/accounts/RepositorySync.h"

namespace Orv::Service {

// One synchronisation pass over an account's storage through its backend:
// the backup prefixes at the top of the storage and the bytes stored under
// them.
class StorageScan
{
public:
    static RepositorySync::Result run(const QVariantMap& config, const std::atomic_bool& cancelled);
};

} // namespace Orv::Service
