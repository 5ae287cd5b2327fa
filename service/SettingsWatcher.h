#pragma once

#include "kelCore/LogManager.h"
#include "orvCommon/DefaultSettings.h"

#include <QFileSystemWatcher>
#include <QObject>
#include <QTimer>

namespace Orv::Service {

// Follows the global settings store while the service runs. The command line
// writes the store directly, by replacing the whole file, so the service
// watches the configuration folder, reads the store again when it changes,
// and applies at once what it uses: log level, log rotation and log folder to
// the log manager; ignoring TLS errors and connection retries to the network
// library's global configuration, which every connection reads. Everything
// else is read from the store where it is used, and so is current from then on.
class SettingsWatcher : public QObject
{
    Q_OBJECT
public:
    explicit SettingsWatcher(QObject* parent = nullptr);

    // Starts watching; false (logged) when the folder cannot be watched.
    bool start();

    // Sets the log manager's level, rotation and folder from the store, falling
    // back to the instance's log folder when the chosen one cannot be written.
    static void applyLogging();

private:
    struct Values
    {
        Kel::LogLevel level = Kel::LogLevel::High;
        int rotateDays = 0;
        QString logPath;
        QString ignoreSsl;
        QString retryAttempts;
        QString retryInterval;

        static Values current();
        bool sameLogging(const Values& other) const;
        bool sameNetwork(const Values& other) const;
    };

    void reload();
    // Logs a damaged or unreadable settings file once per change of its
    // state, and at start-up also on standard error.
    void reportDamage(bool atStart);

    QFileSystemWatcher m_watcher;
    QTimer m_settle;
    Values m_applied;
    DefaultSettings::FileState m_reportedState = DefaultSettings::FileState::Valid;
};

} // namespace Orv::Service
