#include "MemoryUsageSetting.h"

#include "Console.h"
#include "orvCommon/DefaultSettings.h"

#include <limits>

namespace Orv::CLI {

namespace {

constexpr int kMegabyteShift = 20;

} // namespace

MemoryUsageSetting::MemoryUsageSetting(SettingCommandType type, QObject* parent)
    : BaseValueSetting(QStringLiteral("memoryusage"),
                       QStringLiteral("Max allowed memory usage for multi threaded operations"),
                       type, QStringLiteral("Memory usage (value in MBytes)"),
                       QStringLiteral("value"), parent)
{
}

QString MemoryUsageSetting::usage() const
{
    return tr("config set memoryusage -v value\n\t-v value: value in MB\n");
}

bool MemoryUsageSetting::getOption()
{
    const quint64 bytes = DefaultSettings::instance()->getMemoryMaxUsage().toULongLong();
    print(tr("Memory usage: ") + QString::number(bytes >> kMegabyteShift) + tr(" MB\n"));
    return true;
}

bool MemoryUsageSetting::setOption()
{
    if (!hasValue())
        return false;
    bool ok = false;
    const quint64 megabytes = value().toULongLong(&ok);
    // No bound of its own, but a count whose bytes do not fit is no count.
    if (!ok || megabytes > (std::numeric_limits<quint64>::max() >> kMegabyteShift)) {
        print(tr("Wrong memory usage value specified\n"));
        return outputResult(false);
    }
    return outputResult(DefaultSettings::instance()->setMemoryMaxUsage(
        QString::number(megabytes << kMegabyteShift)));
}

} // namespace Orv::CLI
