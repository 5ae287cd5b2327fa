#pragma once

#include "service/engine/SourceWalker.h"

#include <QDateTime>
#include <QString>
#include <atomic>
#include <functional>

namespace Orv::Engine {

// Everything one backup run needs to know, from the plan and the settings.
struct RunDescription
{
    QString planId; // without braces: the bunch
    QString planName;
    WalkOptions walk;
    bool keepEmptyFolders = true;
    bool compression = true;
    QString algorithm; // "aes-128", "aes-192", "aes-256"; empty: no encryption
    QByteArray password;
    QByteArray hint;
    bool forceFull = false;
    // Current format: a changed large file is stored as the blocks that
    // changed against its last full version; forceFull stores them whole.
    bool blockLevel = false;

    int threads = 2;
    qint64 memoryLimit = 1024 * 1024 * 1024; // the memory setting: a cap, not a target
    qint64 bandwidth = 0;                    // bytes per second to the storage; 0: no limit
    qint64 packSize = 16 * 1024 * 1024;
    int uploadThreads = 4;    // packs wait in temporary files, so uploads cost no memory
    QString temporaryPath;    // where packs are assembled; empty: the system's
    int retryAttempts = 3;    // the connection setting: uploads tried again
    int retryInterval = 1000; // milliseconds between

    // Retention by age: generations whose newest restore point is older than
    // keep count units are removed after a successful run (a count of 0
    // keeps everything). Months and years are calendar ones.
    struct Retention
    {
        enum class Unit
        {
            Day,
            Week,
            Month,
            Year,
        };
        int count = 0;
        Unit unit = Unit::Day;

        // The oldest time a generation's newest point may have to be kept.
        QDateTime cutoff(const QDateTime& now) const;
    };
    Retention retention;

    // Which file versions the current format keeps. Applied after every run
    // that commits; a policy that deletes nothing costs nothing.
    struct VersionRetention
    {
        Retention age;               // a count of 0 deletes nothing by age
        bool fromBackupDate = false; // else from the file's modification time
        int keep = 0;                // the newest versions kept of each file; 0: all
        bool keepLast = true;        // the newest version outlives its age
        int deletedAfterDays = -1;   // files gone from the source; -1: kept
        bool deletes() const { return age.count > 0 || keep > 0 || deletedAfterDays >= 0; }
    };
    VersionRetention versions;
    // The plan as the storage keeps it beside its data (no password in it);
    // empty: not saved.
    QByteArray savedPlan;
    // The clock of retention; tests move it.
    std::function<QDateTime()> now = [] { return QDateTime::currentDateTimeUtc(); };
};

// What a run tells as it goes. Counters only grow; any thread may read them.
struct RunProgress
{
    std::atomic<quint64> filesSeen{0};
    std::atomic<quint64> bytesSeen{0};
    std::atomic<quint64> filesRead{0};
    std::atomic<quint64> bytesRead{0};
    std::atomic<quint64> bytesUploaded{0};
    std::atomic<quint64> filesFailed{0};
    std::atomic<int> step{0};
};

enum class RunStep
{
    Preparing = 0,
    Reading = 1,
    Committing = 2,
    Retention = 3,
    Done = 4,
};

// How a run ended.
struct RunResult
{
    enum class Outcome
    {
        Success,
        Warning,
        Failure,
    };
    Outcome outcome = Outcome::Failure;
    QString message;
    quint64 files = 0; // entries in the restore point
    quint64 bytes = 0;
    quint64 filesRead = 0;
    quint64 bytesUploaded = 0;
    int warnings = 0;
    int errors = 0;
    QStringList problems; // the first few, each naming its path
    QString generation;
    QString point;
    bool full = false;
    quint64 versionsRemoved = 0; // by the retention of file versions
};

} // namespace Orv::Engine
