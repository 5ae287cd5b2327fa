#include "BaseBoolSetting.h"

#include "Console.h"

namespace Orv::CLI {

BaseBoolSetting::BaseBoolSetting(const QString& name, const QString& description,
                                 SettingCommandType type, const QString& optionDescription,
                                 const QString& valueName, QObject* parent)
    : BaseSetting(name, description, type, parent),
      m_option(QStringLiteral("enable"), optionDescription, valueName)
{
    if (isSet())
        addLocalOption(m_option);
}

int BaseBoolSetting::process(const QStringList& args)
{
    return run(args);
}

bool BaseBoolSetting::readOptions()
{
    return setSwitchModeOption(m_option, m_value, true);
}

bool BaseBoolSetting::printState(const QString& label, const QString& stored) const
{
    print(label + stateName(stored == QLatin1String("true")));
    return true;
}

} // namespace Orv::CLI
