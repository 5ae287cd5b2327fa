#include "service/jobs/RunHistory.h"

#include "orvCommon/Database.h"
#include "orvInfo/Plan/PlanResult.h"
#include "service/ServiceLog.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

namespace Orv::Service {

namespace {

using Orv::Info::Plan::PlanResult;

QSqlDatabase database()
{
    return QSqlDatabase::database(QLatin1String(Orv::SQL::Database::kServiceConnection), false);
}

const char kColumns[] = "id, plan_id, started, finished, result, files, bytes, uploaded, failed, "
                        "warnings, errors, full, message";

// Times are kept as milliseconds since the epoch.
QVariant stamp(const QDateTime& time)
{
    return time.isValid() ? QVariant(time.toMSecsSinceEpoch()) : QVariant(QVariant::LongLong);
}

QDateTime fromStamp(const QVariant& value)
{
    return value.isNull() ? QDateTime() : QDateTime::fromMSecsSinceEpoch(value.toLongLong());
}

RunRecord readRecord(const QSqlQuery& query)
{
    RunRecord record;
    record.id = query.value(0).toLongLong();
    record.planId = QUuid(query.value(1).toString());
    record.started = fromStamp(query.value(2));
    record.finished = fromStamp(query.value(3));
    record.result = query.value(4).toInt();
    record.files = query.value(5).toLongLong();
    record.bytes = query.value(6).toLongLong();
    record.uploaded = query.value(7).toLongLong();
    record.failed = query.value(8).toLongLong();
    record.warnings = query.value(9).toInt();
    record.errors = query.value(10).toInt();
    record.full = query.value(11).toBool();
    record.message = query.value(12).toString();
    return record;
}

QString planKey(const QUuid& id)
{
    return id.toString(QUuid::WithoutBraces);
}

} // namespace

bool RunHistory::ensureLoaded()
{
    if (m_loaded)
        return true;
    QSqlDatabase db = database();
    if (!db.isOpen())
        return false;
    // The newest run of every plan: the one with the highest id.
    QSqlQuery query(db);
    if (!query.exec(QStringLiteral("SELECT %1 FROM run_history WHERE id IN "
                                   "(SELECT MAX(id) FROM run_history GROUP BY plan_id)")
                        .arg(QLatin1String(kColumns)))) {
        qCWarning(lcService).noquote()
            << "Cannot read the run history:" << query.lastError().text();
        return false;
    }
    while (query.next()) {
        const RunRecord record = readRecord(query);
        m_last.insert(record.planId, record);
    }
    m_loaded = true;
    ++m_generation;
    return true;
}

qint64 RunHistory::begin(const QUuid& planId, const QDateTime& started, QString* error)
{
    if (!ensureLoaded()) {
        *error = QStringLiteral("the database is not open");
        return 0;
    }
    QSqlQuery query(database());
    query.prepare(QStringLiteral("INSERT INTO run_history (plan_id, started) VALUES (?, ?)"));
    query.addBindValue(planKey(planId));
    query.addBindValue(stamp(started));
    if (!query.exec()) {
        *error = query.lastError().text();
        return 0;
    }
    RunRecord record;
    record.id = query.lastInsertId().toLongLong();
    record.planId = planId;
    record.started = started;
    m_last.insert(planId, record);
    ++m_generation;
    return record.id;
}

QString RunHistory::finish(const RunRecord& record)
{
    QSqlQuery query(database());
    query.prepare(QStringLiteral("UPDATE run_history SET finished = ?, result = ?, files = ?, "
                                 "bytes = ?, uploaded = ?, failed = ?, warnings = ?, errors = ?, "
                                 "full = ?, message = ? WHERE id = ?"));
    query.addBindValue(stamp(record.finished));
    query.addBindValue(record.result);
    query.addBindValue(record.files);
    query.addBindValue(record.bytes);
    query.addBindValue(record.uploaded);
    query.addBindValue(record.failed);
    query.addBindValue(record.warnings);
    query.addBindValue(record.errors);
    query.addBindValue(record.full ? 1 : 0);
    query.addBindValue(record.message);
    query.addBindValue(record.id);
    const bool stored = query.exec();
    // The figures are shown from memory even when the disk refused them.
    const auto it = m_last.find(record.planId);
    if (it != m_last.end() && it->id == record.id) {
        *it = record;
        ++m_generation;
    }
    return stored ? QString() : query.lastError().text();
}

QList<QUuid> RunHistory::closeInterrupted(const QDateTime& now)
{
    QList<QUuid> plans;
    if (!ensureLoaded())
        return plans;
    for (auto it = m_last.begin(); it != m_last.end(); ++it) {
        if (it->finished.isValid())
            continue;
        it->finished = now;
        it->result = PlanResult::Interrupted;
        it->message = QStringLiteral("The service stopped during the run");
        plans.append(it.key());
    }
    QSqlQuery query(database());
    query.prepare(QStringLiteral("UPDATE run_history SET finished = ?, result = ?, message = ? "
                                 "WHERE finished IS NULL"));
    query.addBindValue(stamp(now));
    query.addBindValue(int(PlanResult::Interrupted));
    query.addBindValue(QStringLiteral("The service stopped during the run"));
    if (!query.exec())
        qCWarning(lcService).noquote()
            << "Cannot close the interrupted runs:" << query.lastError().text();
    if (!plans.isEmpty())
        ++m_generation;
    return plans;
}

std::optional<RunRecord> RunHistory::last(const QUuid& planId)
{
    ensureLoaded();
    const auto it = m_last.constFind(planId);
    if (it == m_last.constEnd())
        return std::nullopt;
    return *it;
}

QList<RunRecord> RunHistory::runs(const QUuid& planId, int limit)
{
    QList<RunRecord> records;
    QSqlQuery query(database());
    query.prepare(QStringLiteral("SELECT %1 FROM run_history WHERE plan_id = ? "
                                 "ORDER BY id DESC LIMIT ?")
                      .arg(QLatin1String(kColumns)));
    query.addBindValue(planKey(planId));
    query.addBindValue(limit);
    if (!query.exec())
        return records;
    while (query.next())
        records.append(readRecord(query));
    return records;
}

void RunHistory::forget(const QUuid& planId)
{
    QSqlQuery query(database());
    query.prepare(QStringLiteral("DELETE FROM run_history WHERE plan_id = ?"));
    query.addBindValue(planKey(planId));
    if (!query.exec())
        qCWarning(lcService).noquote() << "Cannot remove the run history of" << planKey(planId)
                                       << ":" << query.lastError().text();
    if (m_last.remove(planId) > 0)
        ++m_generation;
}

} // namespace Orv::Service
