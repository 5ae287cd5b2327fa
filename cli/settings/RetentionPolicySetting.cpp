#include "RetentionPolicySetting.h"

#include "Console.h"
#include "orvCommon/AppPath.h"
#include "orvCommon/DefaultSettings.h"
#include "orvCommon/SettingsKeys.h"

#include <array>

namespace Orv::CLI {

namespace {

const QString kBackupDate = QStringLiteral("backup-date");
const QString kModificationDate = QStringLiteral("modification-date");
const QString kTrue = QStringLiteral("true");
// Indexed by period type.
const std::array<QString, 3> kPeriodNames = {QStringLiteral("Day"), QStringLiteral("Week"),
                                             QStringLiteral("Month")};
const std::array<qint64, 3> kPeriodDays = {1, 7, 30};
// Spans from this many days on mean that nothing is deleted by age.
constexpr qint64 kDisabledDays = 10675199;

// kPeriodNames.size() when the name is not a period.
size_t periodIndex(const QString& name)
{
    size_t i = 0;
    while (i < kPeriodNames.size() && kPeriodNames[i] != name)
        ++i;
    return i;
}

// The policy as the four store keys hold it.
struct Policy
{
    bool deleteOlder = false;
    qint64 age = 0;
    size_t period = 0;
    bool keepLast = true;
    bool useBackupDate = false;
    bool keepVersions = false;
    qint64 versions = 0;

    static Policy stored()
    {
        DefaultSettings* store = DefaultSettings::instance();
        Policy policy;
        bool ok = false;
        const qint64 days = store->getSerializationSupportRetentionTime()
                                .section(QLatin1Char('.'), 0, 0)
                                .toLongLong(&ok);
        policy.deleteOlder = ok && days > 0 && days < kDisabledDays;
        if (policy.deleteOlder) {
            // The largest period that divides the span, as it was most likely set.
            for (size_t i = kPeriodDays.size(); i-- > 0;) {
                if (days % kPeriodDays[i] == 0) {
                    policy.period = i;
                    policy.age = days / kPeriodDays[i];
                    break;
                }
            }
        }
        policy.keepLast = store->getRetentionDeleteLastVersion() == kTrue;
        policy.useBackupDate = store->getRetentionUseBackupDate() == kTrue;
        const qint64 versions = store->getRetentionNumberOfVersions().toLongLong(&ok);
        policy.keepVersions =
            ok && versions > 0 &&
            versions < QString::fromLatin1(KeepNumberOfVersions_Disasbled).toLongLong();
        policy.versions = policy.keepVersions ? versions : 0;
        return policy;
    }

    qint64 days() const { return age * kPeriodDays.at(period); }

    bool write() const
    {
        DefaultSettings* store = DefaultSettings::instance();
        const QString span = deleteOlder ? QString::number(days()) + QStringLiteral(".00:00:00")
                                         : QString::fromLatin1(SerializationSupportRT_Disabled);
        const QString count = keepVersions ? QString::number(static_cast<quint64>(versions))
                                           : QString::fromLatin1(KeepNumberOfVersions_Disasbled);
        return store->setSerializationSupportRetentionTime(span) &&
               store->setRetentionDeleteLastVersion(CommandBase::SwitchModeName.value(keepLast)) &&
               store->setRetentionUseBackupDate(CommandBase::SwitchModeName.value(useBackupDate)) &&
               store->setRetentionNumberOfVersions(count);
    }
};

} // namespace

RetentionPolicySetting::RetentionPolicySetting(SettingCommandType type, QObject* parent)
    : BaseSetting(QStringLiteral("retentionpolicy"),
                  QStringLiteral("Global retention policy settings"), type, parent),
      m_deleteOlderOption(
          QStringLiteral("delete-version-older"),
          QStringLiteral("Enables 'Delete version older than' option. Possible values: true, "
                         "false."),
          QStringLiteral("deleteVersionOlder")),
      m_ageOption(QStringLiteral("delete-version-older-age"),
                  QStringLiteral("Sets the period length for the 'delete-version-older' option. "
                                 "This parameter must be used with --delete-version-older and "
                                 "--delete-version-older-type parameters. Example: "
                                 "--delete-version-older true --delete-version-older-age 3 "
                                 "--delete-version-older-type Week"),
                  QStringLiteral("deleteVersionOlderAge")),
      m_periodOption(QStringLiteral("delete-version-older-type"),
                     QStringLiteral("Sets the period type for the 'delete-version-older' option. "
                                    "This parameter is used with --delete-version-older and "
                                    "--delete-version-older-age parameters. Possible values: "
                                    "Month, Week, Day."),
                     QStringLiteral("deleteVersionOlderType")),
      m_dateTypeOption(QStringLiteral("delete-date-type"),
                       QStringLiteral("Sets the period type for retention policy to count. This "
                                      "parameter is used with --delete-version-older parameter. "
                                      "Possible values: backup-date, modification-date "
                                      "(default)."),
                       QStringLiteral("deleteDataType")),
      m_keepLastOption(QStringLiteral("keep-last-version"),
                       QStringLiteral("Enables/disables keeping the last file version on backup "
                                      "storage. Possible value: true, false."),
                       QStringLiteral("keepLastVersion")),
      m_keepVersionOption(QStringLiteral("keep-version"),
                          QStringLiteral("Enables keeping the specified number of file versions "
                                         "on backup storage. Possible value: true, false."),
                          QStringLiteral("keepVersion")),
      m_versionsOption(QStringLiteral("keep-version-number"),
                       QStringLiteral("Sets the numbers of file versions kept on backup storage. "
                                      "The value must be an integer and > 0."),
                       QStringLiteral("keepNumberValues"))
{
    for (const QCommandLineOption* option :
         {&m_deleteOlderOption, &m_ageOption, &m_periodOption, &m_dateTypeOption, &m_keepLastOption,
          &m_keepVersionOption, &m_versionsOption})
        registerOption(*option);
}

int RetentionPolicySetting::process(const QStringList& args)
{
    return run(args);
}

bool RetentionPolicySetting::readOptions()
{
    return setSwitchModeOption(m_deleteOlderOption, m_deleteOlder, false) &&
           setSwitchModeOption(m_keepLastOption, m_keepLast, false) &&
           setSwitchModeOption(m_keepVersionOption, m_keepVersion, false) &&
           setOptionalOption(m_ageOption, m_age) && setOptionalOption(m_periodOption, m_period) &&
           setOptionalOption(m_dateTypeOption, m_dateType) &&
           setOptionalOption(m_versionsOption, m_versions) && checkOptions();
}

bool RetentionPolicySetting::requireEnabled(const QCommandLineOption& enabling, bool enabled,
                                            const QCommandLineOption& dependent)
{
    if (enabled || !given(dependent))
        return true;
    print(tr("Option [ ") + joinedNames(enabling) + tr(" ] true is mandatory to use with") +
          tr(" option [ ") + joinedNames(dependent) + QStringLiteral(" ].\n"));
    return false;
}

bool RetentionPolicySetting::checkOptions()
{
    const Policy stored = Policy::stored();
    const bool deleteOlder =
        given(m_deleteOlderOption) ? m_deleteOlder.toBool() : stored.deleteOlder;
    const bool keepVersions =
        given(m_keepVersionOption) ? m_keepVersion.toBool() : stored.keepVersions;
    if (!requireEnabled(m_deleteOlderOption, deleteOlder, m_ageOption) ||
        !requireEnabled(m_deleteOlderOption, deleteOlder, m_periodOption) ||
        !requireEnabled(m_keepVersionOption, keepVersions, m_versionsOption))
        return false;
    // Switching a rule on needs its values, unless the stored policy has them.
    if (deleteOlder && !stored.deleteOlder &&
        (!setMandatoryOption(m_ageOption, m_age) || !setMandatoryOption(m_periodOption, m_period)))
        return false;
    if (keepVersions && !stored.keepVersions && !setMandatoryOption(m_versionsOption, m_versions))
        return false;
    return true;
}

bool RetentionPolicySetting::validateValues()
{
    const QString dateType = m_dateType.toString();
    if (given(m_dateTypeOption) && dateType != kBackupDate && dateType != kModificationDate) {
        print(tr("Delete data type must be '") + kBackupDate + tr("' or '") + kModificationDate +
              QStringLiteral("'"));
        return false;
    }
    if (given(m_periodOption) && periodIndex(m_period.toString()) >= kPeriodNames.size()) {
        print(tr("Delete versions older type has wrong value\n"));
        print(tr("Possible: \"Day\", \"Week\", \"Month\"\n"));
        return false;
    }
    if (given(m_ageOption) && m_age.toString().toLongLong() < 1) {
        print(tr("Age versions number must be great then 1.\n"));
        return false;
    }
    if (given(m_versionsOption) && m_versions.toString().toInt() < 1) {
        print(tr("Number versions number must be great then 1.\n"));
        return false;
    }
    return true;
}

bool RetentionPolicySetting::setOption()
{
    if (!validateValues())
        return false;
    Policy policy = Policy::stored();
    if (given(m_deleteOlderOption))
        policy.deleteOlder = m_deleteOlder.toBool();
    if (given(m_ageOption))
        policy.age = m_age.toString().toLongLong();
    if (given(m_periodOption))
        policy.period = periodIndex(m_period.toString());
    if (given(m_keepLastOption))
        policy.keepLast = m_keepLast.toBool();
    if (given(m_dateTypeOption))
        policy.useBackupDate = m_dateType.toString() == kBackupDate;
    if (given(m_keepVersionOption))
        policy.keepVersions = m_keepVersion.toBool();
    if (given(m_versionsOption))
        policy.versions = m_versions.toString().toInt();
    // A span that reaches the "never" span would silently turn the rule off.
    if (policy.deleteOlder && policy.age > (kDisabledDays - 1) / kPeriodDays.at(policy.period)) {
        print(tr("Age versions number must be great then 1.\n"));
        return false;
    }
    if (policy.write())
        return true;
    print(tr("Error can't create default purge settings! Check permission for folder %1/.\n")
              .arg(Defines::AppPath::to().config()));
    return false;
}

void RetentionPolicySetting::showOptions()
{
    const Policy policy = Policy::stored();
    print(tr("Retention policy settings:\n"));
    if (policy.deleteOlder) {
        print(tr("Delete version older  : true\n"));
        print(tr("Age version           : ") + QString::number(policy.age) + QStringLiteral("\n"));
        print(tr("Age interval          : ") + kPeriodNames.at(policy.period) +
              QStringLiteral("\n"));
    } else {
        print(tr("Delete version older  : false\n"));
    }
    print(policy.useBackupDate ? tr("Data type             : backup data\n")
                               : tr("Data type             : modification data\n"));
    print(policy.keepLast ? tr("Keep last version     : true\n")
                          : tr("Keep last version     : false\n"));
    if (policy.keepVersions) {
        print(tr("Keep versions         : true\n"));
        print(tr("Number of versions    : ") + QString::number(policy.versions) +
              QStringLiteral("\n"));
    } else {
        print(tr("Keep versions         : false\n"));
    }
}

bool RetentionPolicySetting::getOption()
{
    showOptions();
    return true;
}

} // namespace Orv::CLI
