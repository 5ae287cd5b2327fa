#include "orvCommon/DefaultSettings.h"

#include "kelCore/AtomicFile.h"
#include "kelCore/FileLock.h"
#include "orvCommon/AppPath.h"
#include "orvCommon/SettingsKeys.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcSettings, "orv.settings")

namespace Orv {

namespace {

// Far above anything the store holds; a larger file is not ours.
constexpr qint64 kMaxFileSize = 1024 * 1024;
constexpr qint64 kMegabyte = 1024 * 1024;

struct Snapshot
{
    DefaultSettings::FileState state = DefaultSettings::FileState::Missing;
    QHash<QString, QString> values;
};

// A hand-edited file may hold numbers or booleans where text belongs.
bool textOf(const QJsonValue& value, QString* text)
{
    if (value.isString())
        *text = value.toString();
    else if (value.isBool())
        *text = value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    else if (value.isDouble())
        *text = value.toVariant().toString();
    else
        return false;
    return true;
}

Snapshot readSettingsFile(const QString& path)
{
    Snapshot snapshot;
    QFile file(path);
    if (!file.exists())
        return snapshot;
    if (!file.open(QIODevice::ReadOnly)) {
        snapshot.state = DefaultSettings::FileState::Unreadable;
        return snapshot;
    }
    if (file.size() > kMaxFileSize) {
        snapshot.state = DefaultSettings::FileState::Corrupt;
        return snapshot;
    }
    const QByteArray data = file.readAll();
    snapshot.state = DefaultSettings::FileState::Valid;
    if (data.trimmed().isEmpty())
        return snapshot;
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        snapshot.state = DefaultSettings::FileState::Corrupt;
        return snapshot;
    }
    const QJsonObject object = document.object();
    // Values that are not text, numbers or flags are left out.
    for (auto it = object.begin(); it != object.end(); ++it) {
        QString text;
        if (textOf(it.value(), &text))
            snapshot.values.insert(it.key(), text);
    }
    return snapshot;
}

QByteArray serialise(const QHash<QString, QString>& values)
{
    QJsonObject object;
    for (auto it = values.begin(); it != values.end(); ++it)
        object.insert(it.key(), it.value());
    return QJsonDocument(object).toJson(QJsonDocument::Indented);
}

QHash<QString, QString> defaultValues()
{
    using namespace SettingsKeys;
    return {
        {QLatin1String(NotifEmail), QString()},
        {QLatin1String(NotifUserName), QString()},
        {QLatin1String(IgnoreSSL), QStringLiteral("false")},
        {QLatin1String(CloudBandwidth), QStringLiteral("-1")},
        {QLatin1String(LocalBandwidth), QStringLiteral("-1")},
        {QLatin1String(MemoryMaxUsage), QString::number(1024 * kMegabyte)},
        {QLatin1String(ThreadCount), DefaultSettings::getDefaultThreadCount()},
        {QLatin1String(ChunkSize), QString::number(10 * kMegabyte)},
        {QLatin1String(GlacierQueueSize), DefaultSettings::getDefaultGlacierQueueSize()},
        // Empty: the plans' folder under /tmp, named after the product.
        {QLatin1String(TmpChunkPath), QString()},
        {QLatin1String(WebAccessUseHttp), QStringLiteral("false")},
        {QLatin1String(WebAccessHttpPort), QStringLiteral("43210")},
        {QLatin1String(WebAccessUseHttps), QStringLiteral("false")},
        {QLatin1String(WebAccessHttpsPort), QStringLiteral("43211")},
        {QLatin1String(LogLevel), QStringLiteral("High")},
        {QLatin1String(LogsRotateTimeout), QStringLiteral("30")},
        {QLatin1String(LogPath), DefaultSettings::getDefaultLogPath()},
        {QLatin1String(ConnectionRetryAttempts), QStringLiteral("5")},
        {QLatin1String(ConnectionRetryInterval), QStringLiteral("30000")},
        {QLatin1String(AutoRestart), QStringLiteral("false")},
        {QLatin1String(Never), QStringLiteral("false")},
        {QLatin1String(SymlinksBackupMode), QStringLiteral("SymlinkOnly")},
        {QLatin1String(SerializationSupportRetentionTime),
         QLatin1String(SerializationSupportRT_Disabled)},
        {QLatin1String(RetentionNumberOfVersions), QLatin1String(KeepNumberOfVersions_Disasbled)},
        {QLatin1String(RetentionDeleteLastVersion), QStringLiteral("true")},
        {QLatin1String(RetentionUseBackupDate), QStringLiteral("false")},
        {QLatin1String(ShowAllAccounts), QStringLiteral("false")},
        {QLatin1String(ClientFrameTimeout), QStringLiteral("30")},
        {QLatin1String(ClientIdleTimeout), QStringLiteral("600")},
    };
}

} // namespace

QString DefaultSettings::Property::value() const
{
    return m_store->stored(m_key);
}

QString DefaultSettings::Property::defaultValue() const
{
    return m_store->defaultFor(m_key);
}

bool DefaultSettings::Property::setValue(const QString& value)
{
    return m_store->store(m_key, value);
}

DefaultSettings* DefaultSettings::instance()
{
    static DefaultSettings store;
    return &store;
}

DefaultSettings::DefaultSettings(const QString& filePath) : m_explicitPath(filePath)
{
    const QStringList keys = defaultValues().keys();
    for (const QString& key : keys)
        m_items.emplace(key, std::make_unique<Property>(this, key));
}

QMap<QString, DefaultSettings::Property*> DefaultSettings::items() const
{
    QMap<QString, Property*> map;
    for (const auto& item : m_items)
        map.insert(item.first, item.second.get());
    return map;
}

QString DefaultSettings::filePath() const
{
    ensureLoaded();
    QMutexLocker lock(&m_mutex);
    return m_path;
}

DefaultSettings::FileState DefaultSettings::fileState() const
{
    ensureLoaded();
    QMutexLocker lock(&m_mutex);
    return m_state;
}

void DefaultSettings::reload()
{
    QMutexLocker lock(&m_mutex);
    loadLocked();
}

void DefaultSettings::ensureLoaded() const
{
    QMutexLocker lock(&m_mutex);
    if (!m_loaded)
        loadLocked();
}

void DefaultSettings::loadLocked() const
{
    m_path = m_explicitPath.isEmpty() ? Defines::AppPath::to().settingsFile() : m_explicitPath;
    m_defaults = defaultValues();
    // Not logged here: the first read happens while the programs set up their
    // log, which is configured from this very store. fileState() tells.
    Snapshot snapshot = readSettingsFile(m_path);
    m_state = snapshot.state;
    m_values = std::move(snapshot.values);
    m_loaded = true;
}

QString DefaultSettings::stored(const QString& key) const
{
    ensureLoaded();
    QMutexLocker lock(&m_mutex);
    const auto it = m_values.constFind(key);
    return it != m_values.constEnd() ? it.value() : m_defaults.value(key);
}

QString DefaultSettings::defaultFor(const QString& key) const
{
    ensureLoaded();
    QMutexLocker lock(&m_mutex);
    return m_defaults.value(key);
}

bool DefaultSettings::store(const QString& key, const QString& value)
{
    const QString path = filePath();
    Kel::Core::FileLock fileLock(path + QStringLiteral(".lock"));
    if (!fileLock.acquire()) {
        qCWarning(lcSettings) << "Cannot lock the settings file" << path;
        return false;
    }
    Snapshot disk = readSettingsFile(path);
    if (disk.state == FileState::Unreadable) {
        qCWarning(lcSettings) << "The settings file" << path << "cannot be read; not changing it";
        return false;
    }
    if (disk.state == FileState::Corrupt) {
        const QString aside = path + QStringLiteral(".corrupt");
        QFile::remove(aside);
        QFile::copy(path, aside);
        qCWarning(lcSettings) << "The damaged settings file is kept as" << aside;
    }
    disk.values.insert(key, value);
    const QString failure = Kel::Core::AtomicFile::write(path, serialise(disk.values));
    if (!failure.isEmpty()) {
        qCWarning(lcSettings) << "Cannot write the settings file" << path << ":" << failure;
        return false;
    }
    QMutexLocker lock(&m_mutex);
    m_values = std::move(disk.values);
    m_state = FileState::Valid;
    return true;
}

QString DefaultSettings::text(const char* key) const
{
    const QMap<QString, Property*> all = items();
    const QString name = QLatin1String(key);
    return all.contains(name) ? all.value(name)->value() : QString();
}

bool DefaultSettings::setText(const char* key, const QString& value)
{
    const QMap<QString, Property*> all = items();
    const QString name = QLatin1String(key);
    return all.contains(name) && all.value(name)->setValue(value);
}

QString DefaultSettings::getDefaultGlacierQueueSize()
{
    return QStringLiteral("2000");
}

QString DefaultSettings::getDefaultThreadCount()
{
    return QStringLiteral("5");
}

QString DefaultSettings::getDefaultLogPath()
{
    return Defines::AppPath::to().logs();
}

// The typed accessors: each one names its key and nothing else.
#define ORV_SETTING_ACCESSORS(Name)                                                                \
    QString DefaultSettings::get##Name() const                                                     \
    {                                                                                              \
        return text(SettingsKeys::Name);                                                           \
    }                                                                                              \
    bool DefaultSettings::set##Name(const QString& value)                                          \
    {                                                                                              \
        return setText(SettingsKeys::Name, value);                                                 \
    }

ORV_SETTING_ACCESSORS(NotifEmail)
ORV_SETTING_ACCESSORS(NotifUserName)
ORV_SETTING_ACCESSORS(IgnoreSSL)
ORV_SETTING_ACCESSORS(CloudBandwidth)
ORV_SETTING_ACCESSORS(LocalBandwidth)
ORV_SETTING_ACCESSORS(MemoryMaxUsage)
ORV_SETTING_ACCESSORS(ThreadCount)
ORV_SETTING_ACCESSORS(ChunkSize)
ORV_SETTING_ACCESSORS(GlacierQueueSize)
ORV_SETTING_ACCESSORS(TmpChunkPath)
ORV_SETTING_ACCESSORS(WebAccessUseHttp)
ORV_SETTING_ACCESSORS(WebAccessHttpPort)
ORV_SETTING_ACCESSORS(WebAccessUseHttps)
ORV_SETTING_ACCESSORS(WebAccessHttpsPort)
ORV_SETTING_ACCESSORS(LogLevel)
ORV_SETTING_ACCESSORS(LogsRotateTimeout)
ORV_SETTING_ACCESSORS(LogPath)
ORV_SETTING_ACCESSORS(ConnectionRetryAttempts)
ORV_SETTING_ACCESSORS(ConnectionRetryInterval)
ORV_SETTING_ACCESSORS(AutoRestart)
ORV_SETTING_ACCESSORS(Never)
ORV_SETTING_ACCESSORS(SymlinksBackupMode)
ORV_SETTING_ACCESSORS(SerializationSupportRetentionTime)
ORV_SETTING_ACCESSORS(RetentionNumberOfVersions)
ORV_SETTING_ACCESSORS(RetentionDeleteLastVersion)
ORV_SETTING_ACCESSORS(RetentionUseBackupDate)
ORV_SETTING_ACCESSORS(ShowAllAccounts)
ORV_SETTING_ACCESSORS(ClientFrameTimeout)
ORV_SETTING_ACCESSORS(ClientIdleTimeout)

#undef ORV_SETTING_ACCESSORS

} // namespace Orv
