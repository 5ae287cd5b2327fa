#include "NeverSleepSetting.h"

#include "orvCommon/DefaultSettings.h"

namespace Orv::CLI {

NeverSleepSetting::NeverSleepSetting(SettingCommandType type, QObject* parent)
    : BaseBoolSetting(QStringLiteral("neversleep"), QStringLiteral("Never sleep on backup/restore"),
                      type, QStringLiteral("Never sleep on backup/restore"),
                      QStringLiteral("true/false"), parent)
{
}

bool NeverSleepSetting::getOption()
{
    return printState(tr("Never sleep on backup/restore option is "),
                      DefaultSettings::instance()->getNever());
}

bool NeverSleepSetting::setOption()
{
    return outputResult(DefaultSettings::instance()->setNever(enabledText()));
}

} // namespace Orv::CLI
