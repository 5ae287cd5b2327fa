#include "TemporaryInstance.h"
#include "kelNetwork/GlobalConfig.h"
#include "orvCommon/DefaultSettings.h"
#include "orvCommon/NetworkSettings.h"
#include "orvCommon/SettingsKeys.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <thread>

using Orv::DefaultSettings;

namespace {

QString storeFile(const QTemporaryDir& dir)
{
    return dir.filePath(QStringLiteral("defaultSettings.conf"));
}

void write(const QString& path, const QByteArray& data)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(data);
}

QByteArray read(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

TEST(SettingsStore, DamagedOrMissingFilesReadAsDefaults)
{
    QTemporaryDir dir;
    const QString path = storeFile(dir);
    const QByteArray cases[] = {QByteArray(),
                                "",
                                "  \n",
                                "{\"MultiThread threads count\": \"7\"",
                                "[\"not\", \"an\", \"object\"]",
                                QByteArray("\x00\xff{", 3)};
    for (const QByteArray& content : cases) {
        SCOPED_TRACE(content.toStdString());
        QFile::remove(path);
        if (!content.isNull())
            write(path, content);
        DefaultSettings store(path);
        EXPECT_EQ(store.getThreadCount(), QStringLiteral("5"));
        EXPECT_EQ(store.getGlacierQueueSize(), DefaultSettings::getDefaultGlacierQueueSize());
        EXPECT_EQ(store.getCloudBandwidth(), QStringLiteral("-1"));
        EXPECT_EQ(store.getSerializationSupportRetentionTime(),
                  QLatin1String(Orv::SerializationSupportRT_Disabled));
    }
    // A folder where the file belongs cannot be read; it still reads as defaults.
    QFile::remove(path);
    QDir().mkpath(path);
    DefaultSettings blocked(path);
    EXPECT_EQ(blocked.fileState(), DefaultSettings::FileState::Unreadable);
    EXPECT_EQ(blocked.getLogsRotateTimeout(), QStringLiteral("30"));
}

TEST(SettingsStore, ChangesReachOtherReadersAndKeepUnknownKeys)
{
    QTemporaryDir dir;
    const QString path = storeFile(dir);
    write(path, "{\"Future key\": \"kept\", \"IgnoreSSL\": true, \"DefaultChunkSize\": 6291456}");
    DefaultSettings writer(path);
    EXPECT_EQ(writer.getIgnoreSSL(), QStringLiteral("true"));
    EXPECT_EQ(writer.getChunkSize(), QStringLiteral("6291456"));
    ASSERT_TRUE(writer.setThreadCount(QStringLiteral("12")));

    DefaultSettings reader(path);
    EXPECT_EQ(reader.getThreadCount(), QStringLiteral("12"));
    const QJsonObject onDisk = QJsonDocument::fromJson(read(path)).object();
    EXPECT_EQ(onDisk.value(QStringLiteral("Future key")).toString(), QStringLiteral("kept"));
    EXPECT_EQ(onDisk.value(QStringLiteral("IgnoreSSL")).toString(), QStringLiteral("true"));
    EXPECT_EQ(onDisk.value(QStringLiteral("MultiThread threads count")).toString(),
              QStringLiteral("12"));

    // The writer's own view follows what it wrote; a reader sees it after reload().
    ASSERT_TRUE(writer.setThreadCount(QStringLiteral("13")));
    EXPECT_EQ(writer.getThreadCount(), QStringLiteral("13"));
    EXPECT_EQ(reader.getThreadCount(), QStringLiteral("12"));
    reader.reload();
    EXPECT_EQ(reader.getThreadCount(), QStringLiteral("13"));
}

TEST(SettingsStore, RefusesToOverwriteWhatItCannotReadAndSetsDamagedFilesAside)
{
    QTemporaryDir dir;
    const QString path = storeFile(dir);
    QDir().mkpath(path);
    DefaultSettings blocked(path);
    EXPECT_FALSE(blocked.setThreadCount(QStringLiteral("9")));
    EXPECT_TRUE(QFileInfo(path).isDir());

    QDir(path).removeRecursively();
    write(path, "{ damaged");
    DefaultSettings store(path);
    ASSERT_TRUE(store.setThreadCount(QStringLiteral("9")));
    EXPECT_EQ(read(path + QStringLiteral(".corrupt")), QByteArray("{ damaged"));
    EXPECT_EQ(DefaultSettings(path).getThreadCount(), QStringLiteral("9"));
    // Nothing half-written is left beside the file.
    const QStringList left = QDir(dir.path()).entryList(QDir::Files | QDir::Hidden);
    EXPECT_EQ(left, QStringList({QStringLiteral("defaultSettings.conf"),
                                 QStringLiteral("defaultSettings.conf.corrupt"),
                                 QStringLiteral("defaultSettings.conf.lock")}));
}

TEST(SettingsStore, ConcurrentWritersOfDifferentKeysKeepEveryChange)
{
    // Separate store objects open the lock file separately, as separate
    // processes do, so an unguarded read-modify-write would lose changes here.
    QTemporaryDir dir;
    const QString path = storeFile(dir);
    constexpr int kRounds = 150;
    auto writeAll = [&path](const char* key) {
        DefaultSettings store(path);
        Orv::DefaultSettings::Property* property = store.items().value(QLatin1String(key));
        for (int i = 1; i <= kRounds; ++i)
            if (!property->setValue(QString::number(i)))
                ADD_FAILURE() << key << " write " << i << " failed";
    };
    std::thread first(writeAll, Orv::SettingsKeys::ThreadCount);
    std::thread second(writeAll, Orv::SettingsKeys::GlacierQueueSize);
    first.join();
    second.join();
    DefaultSettings result(path);
    EXPECT_EQ(result.fileState(), DefaultSettings::FileState::Valid);
    EXPECT_EQ(result.getThreadCount(), QString::number(kRounds));
    EXPECT_EQ(result.getGlacierQueueSize(), QString::number(kRounds));
}

TEST(SettingsStore, InstanceStoreFollowsTheInstanceFolder)
{
    TemporaryInstance instance;
    EXPECT_EQ(DefaultSettings::instance()->filePath(),
              instance.path(QStringLiteral("config/defaultSettings.conf")));
    EXPECT_EQ(DefaultSettings::instance()->getLogPath(), instance.path(QStringLiteral("logs")));
    ASSERT_TRUE(DefaultSettings::instance()->setNever(QStringLiteral("true")));
    EXPECT_TRUE(instance.readFile(QStringLiteral("config/defaultSettings.conf"))
                    .contains("\"SystemNeverSleep\": \"true\""));
}

TEST(SettingsStore, NetworkChoicesReachTheNetworkLibrary)
{
    TemporaryInstance instance;
    instance.writeFile(QStringLiteral("config/defaultSettings.conf"),
                       "{\"IgnoreSSL\": \"true\", \"RetryAttempts\": \"7\", "
                       "\"RetryInterval\": \"soon\"}");
    TemporaryInstance::reloadAll();
    Orv::Common::applyNetworkSettings();
    const Kel::Network::GlobalConfig* network = Kel::Network::GlobalConfig::instance();
    EXPECT_TRUE(network->ignoreSslErrors());
    EXPECT_EQ(network->connectionRetryAttempts(), 7);
    EXPECT_EQ(network->connectionRetryInterval(), 30000) << "an unusable value keeps the default";

    ASSERT_TRUE(DefaultSettings::instance()->setIgnoreSSL(QStringLiteral("false")));
    Orv::Common::applyNetworkSettings();
    EXPECT_FALSE(network->ignoreSslErrors());

    // The configuration is process-wide: leave the defaults behind.
    QFile::remove(instance.path(QStringLiteral("config/defaultSettings.conf")));
    TemporaryInstance::reloadAll();
    Orv::Common::applyNetworkSettings();
    EXPECT_EQ(network->connectionRetryAttempts(), 5);
}
