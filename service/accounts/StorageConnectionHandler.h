#pragma once

#include "service/channel/EncodedJson.h"

#include <QJsonObject>

namespace Orv::Service {

class AccountCatalog;
class HandlerRegistry;
class RepositorySync;
class StorageState;

// The storage accounts, as the named command "StorageGetConnection" and the
// typed GetConnection: each stored record completed with what the last
// synchronisation found and whether one runs now. Secrets are masked, except
// for typed requests that ask for them. The whole named answer is kept
// encoded until an account, a synchronisation or its result changes, since
// every account listing asks for it.
class StorageConnectionHandler
{
public:
    // Everything given must outlive this handler, and this handler the registry.
    StorageConnectionHandler(AccountCatalog& catalog, StorageState& state,
                             const RepositorySync& sync);
    StorageConnectionHandler(const StorageConnectionHandler&) = delete;
    StorageConnectionHandler& operator=(const StorageConnectionHandler&) = delete;

    void install(HandlerRegistry& registry);

    // The record a client sees of a stored one; null when the stored one
    // cannot be opened (its secrets were sealed under another key).
    QJsonObject publicRecord(const QJsonObject& stored, bool withSecrets) const;

private:
    const EncodedJson& namedData();

    AccountCatalog& m_catalog;
    StorageState& m_state;
    const RepositorySync& m_sync;
    QVector<quint64> m_generations;
    EncodedJson m_namedData;
};

} // namespace Orv::Service
