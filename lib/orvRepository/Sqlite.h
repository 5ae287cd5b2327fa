#pragma once
// The few SQLite pieces the local caches use.

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <sqlite3.h>

namespace Orv::Repository::Sqlite {

// Resets a statement however the caller leaves it.
struct Reset
{
    sqlite3_stmt* statement;
    ~Reset()
    {
        sqlite3_reset(statement);
        sqlite3_clear_bindings(statement);
    }
};

inline void bindBytes(sqlite3_stmt* s, int index, const QByteArray& bytes)
{
    sqlite3_bind_blob(s, index, bytes.constData(), bytes.size(), SQLITE_TRANSIENT);
}

inline void bindText(sqlite3_stmt* s, int index, const QString& text)
{
    const QByteArray utf8 = text.toUtf8();
    sqlite3_bind_text(s, index, utf8.constData(), utf8.size(), SQLITE_TRANSIENT);
}

inline QByteArray columnBytes(sqlite3_stmt* s, int column)
{
    return QByteArray(static_cast<const char*>(sqlite3_column_blob(s, column)),
                      sqlite3_column_bytes(s, column));
}

inline bool exec(sqlite3* db, const char* sql)
{
    return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

inline sqlite3_stmt* prepare(sqlite3* db, const char* sql)
{
    sqlite3_stmt* s = nullptr;
    sqlite3_prepare_v2(db, sql, -1, &s, nullptr);
    return s;
}

// Runs one statement that takes one text parameter and returns no rows.
inline void runWithText(sqlite3* db, const char* sql, const QString& text)
{
    sqlite3_stmt* s = prepare(db, sql);
    bindText(s, 1, text);
    sqlite3_step(s);
    sqlite3_finalize(s);
}

// Opens (creating) the database file and its folder for one thread at a
// time, waiting up to 30 s for other processes' locks. On failure *db may
// still need sqlite3_close; the reason names the file as "what".
inline bool open(const QString& path, const char* what, sqlite3** db, QString* error)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    if (sqlite3_open_v2(QFile::encodeName(path).constData(), db,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                        nullptr) != SQLITE_OK) {
        *error = QStringLiteral("Cannot open the %1 %2: %3")
                     .arg(QLatin1String(what), path, QString::fromUtf8(sqlite3_errmsg(*db)));
        return false;
    }
    sqlite3_busy_timeout(*db, 30000);
    return true;
}

} // namespace Orv::Repository::Sqlite
