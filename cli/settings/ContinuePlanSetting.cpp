#include "ContinuePlanSetting.h"

#include "orvCommon/DefaultSettings.h"

namespace Orv::CLI {

ContinuePlanSetting::ContinuePlanSetting(SettingCommandType type, QObject* parent)
    : BaseBoolSetting(QStringLiteral("continueplan"), QStringLiteral("Continue plan on wake up"),
                      type, QStringLiteral("Continue plan on wake up"),
                      QStringLiteral("continuePlan"), parent)
{
}

bool ContinuePlanSetting::getOption()
{
    return printState(tr("Continue plan on wake up option is "),
                      DefaultSettings::instance()->getAutoRestart());
}

bool ContinuePlanSetting::setOption()
{
    return outputResult(DefaultSettings::instance()->setAutoRestart(enabledText()));
}

} // namespace Orv::CLI
