#include "BaseValueSetting.h"

#include "Console.h"

namespace Orv::CLI {

BaseValueSetting::BaseValueSetting(const QString& name, const QString& description,
                                   SettingCommandType type, const QString& optionDescription,
                                   const QString& valueName, QObject* parent)
    : BaseSetting(name, description, type, parent),
      m_option(QStringList{QStringLiteral("v"), QStringLiteral("value")}, optionDescription,
               valueName)
{
    registerOption(m_option);
}

int BaseValueSetting::process(const QStringList& args)
{
    return run(args);
}

bool BaseValueSetting::readOptions()
{
    return setMandatoryOption(m_option, m_value);
}

bool BaseValueSetting::hasValue() const
{
    if (!value().isEmpty())
        return true;
    print(usage());
    return false;
}

} // namespace Orv::CLI
