#pragma once

// Keys of the client's global settings store (config/defaultSettings.conf).
// The service and the command line both read them, so they are spelled once.
namespace Orv::SettingsKeys {
inline constexpr char NotifEmail[] = "Notification email";
inline constexpr char NotifUserName[] = "Notification user name";
inline constexpr char IgnoreSSL[] = "IgnoreSSL";
inline constexpr char CloudBandwidth[] = "Cloud Bandwidth";
inline constexpr char LocalBandwidth[] = "Local Bandwidth";
inline constexpr char MemoryMaxUsage[] = "MultiThread memory usage";
inline constexpr char ThreadCount[] = "MultiThread threads count";
inline constexpr char ChunkSize[] = "DefaultChunkSize";
inline constexpr char GlacierQueueSize[] = "Glacier queue size";
inline constexpr char TmpChunkPath[] = "TmpChunkPath";
inline constexpr char WebAccessUseHttp[] = "WebAccessEnabled";
inline constexpr char WebAccessHttpPort[] = "WebAccessPort";
inline constexpr char WebAccessUseHttps[] = "WebAccessUseHttps";
inline constexpr char WebAccessHttpsPort[] = "WebAccessHttpsPort";
inline constexpr char LogLevel[] = "LogLevel";
inline constexpr char LogsRotateTimeout[] = "Logs Rotate TimeOut";
inline constexpr char LogPath[] = "LogPath";
inline constexpr char ConnectionRetryAttempts[] = "RetryAttempts";
inline constexpr char ConnectionRetryInterval[] = "RetryInterval";
inline constexpr char AutoRestart[] = "AutoRestartOnWakeUp";
inline constexpr char Never[] = "SystemNeverSleep";
inline constexpr char SymlinksBackupMode[] = "SymlinksBackupMode";
inline constexpr char SerializationSupportRetentionTime[] = "SerializationSupportRetentionTime";
inline constexpr char RetentionNumberOfVersions[] = "RetentionNumberOfVersions";
inline constexpr char RetentionDeleteLastVersion[] = "RetentionDeleteLastVersion";
inline constexpr char RetentionUseBackupDate[] = "RetentionUseBackupDate";
// "true" offers the deprecated account types too when accounts are added.
inline constexpr char ShowAllAccounts[] = "ShowAllAccounts";
// Seconds orvd gives a client to finish a request it started sending (or to
// read an answer it was sent), and to stay connected with nothing in flight.
inline constexpr char ClientFrameTimeout[] = "ClientFrameTimeout";
inline constexpr char ClientIdleTimeout[] = "ClientIdleTimeout";
} // namespace Orv::SettingsKeys

namespace Orv {
// The largest time span: versions are never deleted because of their age.
inline constexpr char SerializationSupportRT_Disabled[] = "10675199.02:48:05.4775807";
// The largest count: the number of versions kept is not limited.
inline constexpr char KeepNumberOfVersions_Disasbled[] = "2147483647";
} // namespace Orv
