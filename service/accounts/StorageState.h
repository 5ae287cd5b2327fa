#pragma once

#include <QDateTime>
#include <QHash>
#include <QStringList>
#include <QUuid>

namespace Orv::Service {

// What the last synchronisation found in each account's storage, kept in the
// database's storage_state table. Only the service writes it, so the rows are
// read once and then served from memory. Until the database is open there is
// nothing to report.
class StorageState
{
public:
    struct Entry
    {
        qint64 spaceUsed = 0;
        QStringList prefixes;
        // Null until the first synchronisation ended.
        QDateTime synced;
    };

    Entry entry(const QUuid& accountId);
    // Changes whenever an entry changes, so that callers can keep what they
    // derive from the entries until then.
    quint64 generation()
    {
        ensureLoaded();
        return m_generation;
    }

    // Empty on success, otherwise the reason.
    QString store(const QUuid& accountId, const Entry& entry);
    QString remove(const QUuid& accountId);

private:
    bool ensureLoaded();

    QHash<QUuid, Entry> m_entries;
    bool m_loaded = false;
    quint64 m_generation = 1;
};

} // namespace Orv::Service
