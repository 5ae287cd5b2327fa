#include "ChunkSizeSetting.h"

#include "Console.h"
#include "orvCommon/DefaultSettings.h"

namespace Orv::CLI {

namespace {

constexpr int kMegabyteShift = 20;
constexpr quint64 kMinMegabytes = 5;
constexpr quint64 kMaxMegabytes = 5120;

} // namespace

ChunkSizeSetting::ChunkSizeSetting(SettingCommandType type, QObject* parent)
    : BaseValueSetting(QStringLiteral("chunksize"), QStringLiteral("Default chunk size"), type,
                       QStringLiteral("Chunk size value"), QStringLiteral("chunkSize"), parent)
{
}

QString ChunkSizeSetting::usage() const
{
    return tr("config set chunksize -v value\n\t-v value: default chunk size in MB.\n");
}

bool ChunkSizeSetting::getOption()
{
    const quint64 bytes = DefaultSettings::instance()->getChunkSize().toULongLong();
    print(tr("Chunk size: ") + QString::number(bytes >> kMegabyteShift) + tr(" MB\n"));
    return true;
}

bool ChunkSizeSetting::setOption()
{
    if (!hasValue())
        return false;
    // A value that is not a number counts as 0, which is out of range.
    const quint64 megabytes = value().toULongLong();
    if (megabytes < kMinMegabytes || megabytes > kMaxMegabytes) {
        print(tr("Wrong chunk size value specified\n"));
        return outputResult(false);
    }
    return outputResult(
        DefaultSettings::instance()->setChunkSize(QString::number(megabytes << kMegabyteShift)));
}

} // namespace Orv::CLI
