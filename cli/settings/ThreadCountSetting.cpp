#include "ThreadCountSetting.h"

#include "Console.h"
#include "orvCommon/DefaultSettings.h"

namespace Orv::CLI {

namespace {

constexpr qint64 kMaxThreads = 100;

} // namespace

ThreadCountSetting::ThreadCountSetting(SettingCommandType type, QObject* parent)
    : BaseValueSetting(QStringLiteral("threadcount"), QStringLiteral("Thread count"), type,
                       QStringLiteral("Thread count"), QStringLiteral("value"), parent)
{
}

QString ThreadCountSetting::usage() const
{
    return tr("set threadcount -v value\n\t-v value: count of threads used in backup/restore. "
              "Possible values: 1..100\n");
}

bool ThreadCountSetting::getOption()
{
    print(tr("Thread count: ") + DefaultSettings::instance()->getThreadCount());
    return true;
}

bool ThreadCountSetting::setOption()
{
    if (!hasValue())
        return false;
    const qint64 count = value().toLongLong();
    if (count <= 0 || count > kMaxThreads) {
        print(tr("Wrong thread count value specified\n"));
        return outputResult(false);
    }
    return outputResult(DefaultSettings::instance()->setThreadCount(QString::number(count)));
}

} // namespace Orv::CLI
