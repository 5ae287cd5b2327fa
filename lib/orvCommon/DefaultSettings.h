#pragma once

#include <QHash>
#include <QMap>
#include <QMutex>
#include <QString>
#include <map>
#include <memory>

namespace Orv {

// The client's global settings store: one JSON object of text values in the
// instance's config/defaultSettings.conf. Keys that the file does not hold read
// as their defaults, and keys the file holds that this build does not know are
// kept when it is rewritten.
//
// Reading never fails: a missing, empty, unreadable or damaged file reads as
// the defaults. Every change re-reads the file under an exclusive lock,
// applies the one value and writes the whole file atomically, so concurrent
// writers of different keys all keep their changes, and a crash leaves the old
// file or the new one. A file that exists but cannot be read is never
// overwritten; a damaged one is kept beside the new one as "<file>.corrupt".
class DefaultSettings
{
public:
    class Property
    {
    public:
        Property(DefaultSettings* store, const QString& key) : m_store(store), m_key(key) {}
        QString key() const { return m_key; }
        QString value() const;
        QString defaultValue() const;
        bool setValue(const QString& value);

    private:
        DefaultSettings* m_store;
        QString m_key;
    };

    enum class FileState
    {
        Missing,
        Valid,
        Corrupt,
        Unreadable
    };

    // The process-wide store of the current instance (AppPath).
    static DefaultSettings* instance();

    // A store over the given file; with an empty path, the instance's file,
    // looked up again on every reload().
    explicit DefaultSettings(const QString& filePath = QString());
    DefaultSettings(const DefaultSettings&) = delete;
    DefaultSettings& operator=(const DefaultSettings&) = delete;

    QMap<QString, Property*> items() const;
    QString filePath() const;
    // How the file looked when it was last read.
    FileState fileState() const;
    // Reads the file again (the service calls it when the file changes).
    void reload();

    QString getNotifEmail() const;
    bool setNotifEmail(const QString& value);
    QString getNotifUserName() const;
    bool setNotifUserName(const QString& value);
    QString getIgnoreSSL() const;
    bool setIgnoreSSL(const QString& value);
    QString getCloudBandwidth() const;
    bool setCloudBandwidth(const QString& value);
    QString getLocalBandwidth() const;
    bool setLocalBandwidth(const QString& value);
    QString getMemoryMaxUsage() const;
    bool setMemoryMaxUsage(const QString& value);
    QString getThreadCount() const;
    bool setThreadCount(const QString& value);
    QString getChunkSize() const;
    bool setChunkSize(const QString& value);
    QString getGlacierQueueSize() const;
    bool setGlacierQueueSize(const QString& value);
    QString getTmpChunkPath() const;
    bool setTmpChunkPath(const QString& value);
    QString getWebAccessUseHttp() const;
    bool setWebAccessUseHttp(const QString& value);
    QString getWebAccessHttpPort() const;
    bool setWebAccessHttpPort(const QString& value);
    QString getWebAccessUseHttps() const;
    bool setWebAccessUseHttps(const QString& value);
    QString getWebAccessHttpsPort() const;
    bool setWebAccessHttpsPort(const QString& value);
    QString getLogLevel() const;
    bool setLogLevel(const QString& value);
    QString getLogsRotateTimeout() const;
    bool setLogsRotateTimeout(const QString& value);
    QString getLogPath() const;
    bool setLogPath(const QString& value);
    QString getConnectionRetryAttempts() const;
    bool setConnectionRetryAttempts(const QString& value);
    QString getConnectionRetryInterval() const;
    bool setConnectionRetryInterval(const QString& value);
    QString getAutoRestart() const;
    bool setAutoRestart(const QString& value);
    QString getNever() const;
    bool setNever(const QString& value);
    QString getSymlinksBackupMode() const;
    bool setSymlinksBackupMode(const QString& value);
    QString getSerializationSupportRetentionTime() const;
    bool setSerializationSupportRetentionTime(const QString& value);
    QString getRetentionNumberOfVersions() const;
    bool setRetentionNumberOfVersions(const QString& value);
    QString getRetentionDeleteLastVersion() const;
    bool setRetentionDeleteLastVersion(const QString& value);
    QString getRetentionUseBackupDate() const;
    bool setRetentionUseBackupDate(const QString& value);
    QString getShowAllAccounts() const;
    bool setShowAllAccounts(const QString& value);
    QString getClientFrameTimeout() const;
    bool setClientFrameTimeout(const QString& value);
    QString getClientIdleTimeout() const;
    bool setClientIdleTimeout(const QString& value);

    static QString getDefaultGlacierQueueSize();
    static QString getDefaultThreadCount();
    static QString getDefaultLogPath();

private:
    QString text(const char* key) const;
    bool setText(const char* key, const QString& value);
    QString stored(const QString& key) const;
    QString defaultFor(const QString& key) const;
    bool store(const QString& key, const QString& value);
    void ensureLoaded() const;
    void loadLocked() const;

    mutable QMutex m_mutex;
    const QString m_explicitPath;
    mutable QString m_path;
    mutable bool m_loaded = false;
    mutable FileState m_state = FileState::Missing;
    mutable QHash<QString, QString> m_values;
    mutable QHash<QString, QString> m_defaults;
    std::map<QString, std::unique_ptr<Property>> m_items;
};

} // namespace Orv
