#pragma once

#include "BaseSetting.h"

namespace Orv::CLI {

// A setting changed through one value option, "-v" / "--value".
class BaseValueSetting : public BaseSetting
{
    Q_OBJECT
public:
    BaseValueSetting(const QString& name, const QString& description, SettingCommandType type,
                     const QString& optionDescription, const QString& valueName,
                     QObject* parent = nullptr);

    int process(const QStringList& args) override;

protected:
    bool readOptions() override;
    // The usage text shown when the value is empty.
    virtual QString usage() const = 0;
    QString value() const { return m_value.toString(); }
    // False, after printing the usage text, when the value is empty.
    bool hasValue() const;

    QCommandLineOption m_option;
    QVariant m_value;
};

} // namespace Orv::CLI
