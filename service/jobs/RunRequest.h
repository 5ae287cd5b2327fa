#pragma once

#include "orvInfo/Plan/BackupRetentionPolicy.h"
#include "orvInfo/Plan/Base.h"
#include "orvInfo/StorageConnection.h"
#include "orvRepository/Repository.h"
#include "service/engine/Restorer.h"
#include "service/engine/RunDescription.h"

#include <QJsonObject>
#include <QSharedPointer>
#include <QUuid>

namespace Orv::Service {

// A program run before or after a plan's run.
struct PlanAction
{
    bool enabled = false;
    QString program;       // the file, from the first pair of double quotes
    QStringList arguments; // the rest of the command line, split as a shell would
    // Pre-action: a failure stops the plan. Post-action: it runs even after
    // a failed plan.
    bool onFailure = false;
};

// Everything one run of a plan needs, taken from the plan, its storage
// account and the settings when the run starts, so that the run never reads
// configuration that changes under it.
struct RunRequest
{
    QUuid planId;
    QString planName;
    bool restore = false;
    // The current format (cbf) rather than the new one.
    bool currentFormat = false;
    // A restore of the current format that names no backup plan: the backup
    // plans of this machine whose files it takes (each keeps its own), filled
    // in by the job runner; empty, every plan the storage holds.
    QStringList currentPlans;
    // What the run cannot do as the plan asks, told as a warning of the run.
    QString notice;
    Orv::Engine::RunDescription backup;
    Orv::Engine::RestoreDescription restoreDescription;
    Orv::Repository::Location location;
    bool syncBeforeRun = false;
    bool consistencyCheck = false;
    PlanAction pre;
    PlanAction post;
    qint64 actionTimeoutMs = 0;
    qint64 stopAfterMs = 0; // 0: no limit
};

// The settings a run takes, read once per run.
struct RunSettings
{
    int threads = 2;
    qint64 memoryLimit = 1024 * 1024 * 1024;
    qint64 cloudBandwidth = 0; // bytes per second, 0: no limit
    qint64 localBandwidth = 0;
    qint64 chunkSize = 16 * 1024 * 1024;
    QString temporaryPath;
    int retryAttempts = 3;
    int retryInterval = 1000;
    int symlinkMode = 1;
    int retentionDays = 0; // the global retention by age; 0: keep everything
    // The global retention of file versions (the current format).
    int retentionVersions = 0; // versions kept of each file; 0: all
    bool retentionKeepLast = true;
    bool retentionBackupDate = false;

    // From the settings store of the service.
    static RunSettings current();
};

// Makes the run request of a plan, or returns false with the reason a user
// reads in the plan's last-run message. backendConfig is the account's
// storage configuration with its secrets opened; cacheRoot the folder of the
// repository caches.
bool makeRunRequest(const Orv::Info::Plan::Base& plan,
                    const Orv::Info::Storage::Connection& account, const QVariantMap& backendConfig,
                    const RunSettings& settings, const QString& cacheRoot, bool forceFull,
                    RunRequest* request, QString* error);

// Which file versions a plan of the current format keeps: its own policy,
// or the settings' when its policy is Default.
Orv::Engine::RunDescription::VersionRetention
versionRetention(const Orv::Info::Plan::BackupRetentionPolicy& policy, const RunSettings& settings);

// Splits an action's command line ("\"/path/to/file\" arg1 arg2"); false
// when it does not start with a quoted program.
bool parseActionCommand(const QString& command, QString* program, QStringList* arguments);

} // namespace Orv::Service
