#pragma once

#include <QSqlDatabase>
#include <QString>

namespace Orv::SQL {

// The client database in the instance's data folder: run state, history and
// repository caches. The service owns it and writes it (WAL mode, so readers
// never block the writer); the command line opens it read-only.
class Database
{
public:
    static constexpr const char* kClientConnection = "orv-client";
    static constexpr const char* kServiceConnection = "orv-service";

    // Command line side. Opens the database read-only when the service has
    // created it; a missing database is not an error (nothing has run yet).
    static bool init();

    // Service side: opens or creates the database, sets WAL mode and brings
    // the schema to the current version. On failure returns false with the
    // reason in *error and leaves the file as it was.
    static bool openForService(const QString& path, QString* error);

    static int currentSchemaVersion();
    // The version recorded in an open database, 0 for a new one.
    static int schemaVersion(QSqlDatabase& db);

private:
    static bool migrate(QSqlDatabase& db, QString* error);
};

} // namespace Orv::SQL
