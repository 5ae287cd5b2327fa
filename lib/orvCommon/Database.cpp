#include "orvCommon/Database.h"

#include "orvCommon/AppPath.h"

#include <QDir>
#include <QFileInfo>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>
#include <QVariant>

namespace Orv::SQL {

namespace {

// Each step brings the schema from the version before it to its own. Steps
// are never edited once released: a change is a new step.
struct Migration
{
    int version;
    QStringList statements;
};

const QList<Migration>& migrations()
{
    static const QList<Migration> steps = {
        {1,
         {
             QStringLiteral("CREATE TABLE plan_state ("
                            " plan_id TEXT PRIMARY KEY,"
                            " status INTEGER NOT NULL DEFAULT 0,"
                            " last_result INTEGER NOT NULL DEFAULT 0,"
                            " last_run_start INTEGER,"
                            " last_run_end INTEGER,"
                            " last_message TEXT NOT NULL DEFAULT '')"),
             QStringLiteral("CREATE TABLE run_history ("
                            " id INTEGER PRIMARY KEY AUTOINCREMENT,"
                            " plan_id TEXT NOT NULL,"
                            " started INTEGER NOT NULL,"
                            " finished INTEGER,"
                            " result INTEGER NOT NULL DEFAULT 0,"
                            " files INTEGER NOT NULL DEFAULT 0,"
                            " bytes INTEGER NOT NULL DEFAULT 0,"
                            " uploaded INTEGER NOT NULL DEFAULT 0,"
                            " failed INTEGER NOT NULL DEFAULT 0,"
                            " message TEXT NOT NULL DEFAULT '')"),
             QStringLiteral("CREATE INDEX run_history_plan ON run_history(plan_id, started)"),
             QStringLiteral("CREATE TABLE storage_state ("
                            " account_id TEXT PRIMARY KEY,"
                            " space_used INTEGER NOT NULL DEFAULT 0,"
                            " prefixes TEXT NOT NULL DEFAULT '[]',"
                            " synced INTEGER)"),
         }},
        {2,
         {
             // Whether a backup run was full, and its warning and error
             // counts, beside the figures of version 1.
             QStringLiteral("ALTER TABLE run_history ADD COLUMN full INTEGER NOT NULL DEFAULT 0"),
             QStringLiteral(
                 "ALTER TABLE run_history ADD COLUMN warnings INTEGER NOT NULL DEFAULT 0"),
             QStringLiteral("ALTER TABLE run_history ADD COLUMN errors INTEGER NOT NULL DEFAULT 0"),
         }},
    };
    return steps;
}

bool exec(QSqlDatabase& db, const QString& statement, QString* error)
{
    QSqlQuery query(db);
    if (query.exec(statement))
        return true;
    if (error)
        *error = query.lastError().text();
    return false;
}

} // namespace

int Database::currentSchemaVersion()
{
    return migrations().last().version;
}

bool Database::init()
{
    const QString path = Orv::Defines::AppPath::to().databaseFile();
    if (!QFileInfo::exists(path))
        return true;
    QSqlDatabase db =
        QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QLatin1String(kClientConnection));
    db.setDatabaseName(path);
    db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY;QSQLITE_BUSY_TIMEOUT=2000"));
    return db.open();
}

int Database::schemaVersion(QSqlDatabase& db)
{
    QSqlQuery query(db);
    if (!query.exec(QStringLiteral("PRAGMA user_version")) || !query.next())
        return 0;
    return query.value(0).toInt();
}

bool Database::openForService(const QString& path, QString* error)
{
    if (!QDir().mkpath(QFileInfo(path).absolutePath())) {
        *error = QStringLiteral("cannot create the data folder");
        return false;
    }
    QSqlDatabase db = QSqlDatabase::contains(QLatin1String(kServiceConnection))
                          ? QSqlDatabase::database(QLatin1String(kServiceConnection), false)
                          : QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"),
                                                      QLatin1String(kServiceConnection));
    db.setDatabaseName(path);
    db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=5000"));
    if (!db.open()) {
        *error = db.lastError().text();
        return false;
    }
    QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    if (!exec(db, QStringLiteral("PRAGMA journal_mode=WAL"), error) ||
        !exec(db, QStringLiteral("PRAGMA synchronous=NORMAL"), error) ||
        !exec(db, QStringLiteral("PRAGMA foreign_keys=ON"), error))
        return false;
    return migrate(db, error);
}

bool Database::migrate(QSqlDatabase& db, QString* error)
{
    const int have = schemaVersion(db);
    if (have > currentSchemaVersion()) {
        *error = QStringLiteral("the database schema (version %1) is newer than this program "
                                "understands (version %2)")
                     .arg(have)
                     .arg(currentSchemaVersion());
        return false;
    }
    for (const Migration& step : migrations()) {
        if (step.version <= have)
            continue;
        // One transaction per step: a crash mid-way leaves the previous version.
        if (!db.transaction()) {
            *error = db.lastError().text();
            return false;
        }
        for (const QString& statement : step.statements) {
            if (!exec(db, statement, error)) {
                db.rollback();
                return false;
            }
        }
        if (!exec(db, QStringLiteral("PRAGMA user_version = %1").arg(step.version), error) ||
            !db.commit()) {
            db.rollback();
            return false;
        }
    }
    return true;
}

} // namespace Orv::SQL
