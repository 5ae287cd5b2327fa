#include "service/accounts/StorageState.h"

#include "orvCommon/Database.h"
#include "service/ServiceLog.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSqlError>
#include <QSqlQuery>

namespace Orv::Service {

namespace {

QSqlDatabase database()
{
    return QSqlDatabase::database(QLatin1String(Orv::SQL::Database::kServiceConnection), false);
}

QStringList prefixesFrom(const QString& text)
{
    QStringList prefixes;
    const QJsonArray array = QJsonDocument::fromJson(text.toUtf8()).array();
    for (const QJsonValue& value : array)
        prefixes.append(value.toString());
    return prefixes;
}

} // namespace

bool StorageState::ensureLoaded()
{
    if (m_loaded)
        return true;
    QSqlDatabase db = database();
    if (!db.isOpen())
        return false;
    QSqlQuery query(db);
    if (!query.exec(QStringLiteral("SELECT account_id, space_used, prefixes, synced "
                                   "FROM storage_state"))) {
        qCWarning(lcService).noquote()
            << "Cannot read the storage state:" << query.lastError().text();
        return false;
    }
    while (query.next()) {
        Entry entry;
        entry.spaceUsed = query.value(1).toLongLong();
        entry.prefixes = prefixesFrom(query.value(2).toString());
        if (!query.value(3).isNull())
            entry.synced = QDateTime::fromSecsSinceEpoch(query.value(3).toLongLong(), Qt::UTC);
        m_entries.insert(QUuid(query.value(0).toString()), entry);
    }
    m_loaded = true;
    ++m_generation;
    return true;
}

StorageState::Entry StorageState::entry(const QUuid& accountId)
{
    ensureLoaded();
    return m_entries.value(accountId);
}

QString StorageState::store(const QUuid& accountId, const Entry& entry)
{
    if (!ensureLoaded())
        return QStringLiteral("the database is not open");
    QSqlQuery query(database());
    query.prepare(QStringLiteral("INSERT OR REPLACE INTO storage_state "
                                 "(account_id, space_used, prefixes, synced) VALUES (?, ?, ?, ?)"));
    query.addBindValue(accountId.toString());
    query.addBindValue(entry.spaceUsed);
    query.addBindValue(QString::fromUtf8(
        QJsonDocument(QJsonArray::fromStringList(entry.prefixes)).toJson(QJsonDocument::Compact)));
    query.addBindValue(entry.synced.isValid() ? QVariant(entry.synced.toSecsSinceEpoch())
                                              : QVariant());
    if (!query.exec())
        return query.lastError().text();
    m_entries.insert(accountId, entry);
    ++m_generation;
    return {};
}

QString StorageState::remove(const QUuid& accountId)
{
    if (!ensureLoaded())
        return QStringLiteral("the database is not open");
    QSqlQuery query(database());
    query.prepare(QStringLiteral("DELETE FROM storage_state WHERE account_id = ?"));
    query.addBindValue(accountId.toString());
    if (!query.exec())
        return query.lastError().text();
    m_entries.remove(accountId);
    ++m_generation;
    return {};
}

} // namespace Orv::Service
