#include "QueueSizeSetting.h"

#include "Console.h"
#include "orvCommon/DefaultSettings.h"

namespace Orv::CLI {

QueueSizeSetting::QueueSizeSetting(SettingCommandType type, QObject* parent)
    : BaseValueSetting(QStringLiteral("queuesize"),
                       QStringLiteral("Queue size for Glacier restores"), type,
                       QStringLiteral("Queue size"), QStringLiteral("value"), parent)
{
}

QString QueueSizeSetting::usage() const
{
    return tr("set queuesize -v value\n\t-v value: default queue size in waiting mode. Possible "
              "values: 0...\n");
}

bool QueueSizeSetting::getOption()
{
    print(tr("Queue size: ") + DefaultSettings::instance()->getGlacierQueueSize());
    return true;
}

bool QueueSizeSetting::setOption()
{
    if (!hasValue())
        return false;
    bool ok = false;
    const qint64 size = value().toLongLong(&ok);
    if (!ok) {
        print(tr("Wrong queue size value specified\n"));
        return outputResult(false);
    }
    // A negative number is refused without the save message: nothing was tried.
    if (size < 0) {
        print(tr("Wrong queue size value specified\n"));
        return false;
    }
    return outputResult(DefaultSettings::instance()->setGlacierQueueSize(QString::number(size)));
}

} // namespace Orv::CLI
