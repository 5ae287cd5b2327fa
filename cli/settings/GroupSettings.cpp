#include "GroupSettings.h"

#include "BandwidthSetting.h"
#include "ChunkSizeSetting.h"
#include "ConnectionSetting.h"
#include "IgnoreSSLSetting.h"
#include "LoggingModeSetting.h"
#include "MemoryUsageSetting.h"
#include "NotificationSetting.h"
#include "ProxySetting.h"
#include "QueueSizeSetting.h"
#include "RetentionPolicySetting.h"
#include "SymlinksBackupSetting.h"
#include "ThreadCountSetting.h"
#include "TmpChunkPathSetting.h"
#include "WebAccessSetting.h"

namespace Orv::CLI {

SettingsGroup::SettingsGroup(const QString& name, const QString& description,
                             SettingCommandType type, QObject* parent)
    : CommandGroupBase(name, description, parent)
{
    addSubItem(QSharedPointer<NotificationSetting>::create(type));
    addSubItem(QSharedPointer<IgnoreSSLSetting>::create(type));
    addSubItem(QSharedPointer<BandwidthSetting>::create(type, BandwidthType::Cloud));
    addSubItem(QSharedPointer<BandwidthSetting>::create(type, BandwidthType::Local));
    addSubItem(QSharedPointer<MemoryUsageSetting>::create(type));
    addSubItem(QSharedPointer<ThreadCountSetting>::create(type));
    addSubItem(QSharedPointer<ChunkSizeSetting>::create(type));
    addSubItem(QSharedPointer<QueueSizeSetting>::create(type));
    addSubItem(QSharedPointer<TmpChunkPathSetting>::create(type));
    addSubItem(QSharedPointer<ProxySetting>::create(type));
    addSubItem(QSharedPointer<WebAccessSetting>::create(type));
    addSubItem(QSharedPointer<SymlinksBackupSetting>::create(type));
    addSubItem(QSharedPointer<LoggingModeSetting>::create(type));
    addSubItem(QSharedPointer<ConnectionSetting>::create(type));
    addSubItem(QSharedPointer<RetentionPolicySetting>::create(type));
}

} // namespace Orv::CLI
