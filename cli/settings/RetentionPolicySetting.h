#pragma once

#include "BaseSetting.h"

namespace Orv::CLI {

// "retentionpolicy": the retention defaults new plans start from: whether and
// after how long old versions are deleted (counted from the backup date or the
// modification date), whether the last version is kept, and how many versions
// are kept. Every change rewrites the whole policy from the options given and
// the stored values they leave alone.
class RetentionPolicySetting : public BaseSetting
{
    Q_OBJECT
public:
    explicit RetentionPolicySetting(SettingCommandType type, QObject* parent = nullptr);

    int process(const QStringList& args) override;

protected:
    bool readOptions() override;
    bool setOption() override;
    bool getOption() override;

private:
    // The age, its period and the number of versions only make sense with
    // their rule switched on (now or in the stored policy); false, after the
    // message, when that is not so. The date basis is a standing preference
    // and may be chosen in advance.
    bool checkOptions();
    bool requireEnabled(const QCommandLineOption& enabling, bool enabled,
                        const QCommandLineOption& dependent);
    bool validateValues();
    void showOptions();

    QCommandLineOption m_deleteOlderOption;
    QCommandLineOption m_ageOption;
    QCommandLineOption m_periodOption;
    QCommandLineOption m_dateTypeOption;
    QCommandLineOption m_keepLastOption;
    QCommandLineOption m_keepVersionOption;
    QCommandLineOption m_versionsOption;
    QVariant m_deleteOlder;
    QVariant m_age;
    QVariant m_period;
    QVariant m_dateType;
    QVariant m_keepLast;
    QVariant m_keepVersion;
    QVariant m_versions;
};

} // namespace Orv::CLI
