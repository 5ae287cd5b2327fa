#pragma once

#include "BaseSetting.h"

namespace Orv::CLI {

// A setting switched on or off through "--enable true|false". The value is
// not written to the log.
class BaseBoolSetting : public BaseSetting
{
    Q_OBJECT
public:
    BaseBoolSetting(const QString& name, const QString& description, SettingCommandType type,
                    const QString& optionDescription, const QString& valueName,
                    QObject* parent = nullptr);

    int process(const QStringList& args) override;

protected:
    bool readOptions() override;
    bool enabled() const { return m_value.toBool(); }
    // The switch as the store keeps it, "true" or "false".
    QString enabledText() const { return SwitchModeName.value(enabled()); }
    // Prints the label and "enabled" or "disabled" after the stored flag.
    bool printState(const QString& label, const QString& stored) const;

    QCommandLineOption m_option;
    QVariant m_value;
};

} // namespace Orv::CLI
