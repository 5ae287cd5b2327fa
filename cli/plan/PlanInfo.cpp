#include "PlanInfo.h"

#include "PlanInfoBackupFile.h"
#include "PlanInfoRestoreFile.h"

#include <QLocale>

namespace Orv::CLI {

using Orv::Info::Plan::Schedule;

namespace {

const QString kTime = QStringLiteral("hh:mm");
const QString kDateTime = QStringLiteral("dd.MM.yyyy hh:mm");

QString timeOfDay(const Schedule& schedule)
{
    if (!schedule.dailyRecurrence())
        return QStringLiteral("at ") + schedule.occursAt().toString(kTime);
    const Schedule::OccursEvery every = schedule.occursEvery();
    return QStringLiteral("every %1 min from %2 to %3")
        .arg(every.minutes())
        .arg(every.fromTime().toString(kTime), every.toTime().toString(kTime));
}

QString weekDays(const Schedule& schedule)
{
    const QBitArray days = schedule.weeklyFrequency();
    QStringList names;
    for (int i = 0; i < days.size(); ++i) {
        if (days.testBit(i))
            names.append(QLocale::c().dayName(i + 1));
    }
    return names.isEmpty() ? QStringLiteral("no day") : names.join(QStringLiteral(", "));
}

QString monthRepeat(const Schedule& schedule)
{
    if (schedule.monthRepeat() <= 1)
        return QString();
    QString text = QStringLiteral(", every %1 months").arg(schedule.monthRepeat());
    if (schedule.monthRepeatFrom().isValid())
        text += QStringLiteral(" from ") +
                schedule.monthRepeatFrom().toString(QStringLiteral("dd.MM.yyyy"));
    return text;
}

} // namespace

PlanInfo::PlanInfo(QSharedPointer<const Orv::Info::Plan::Base> plan) : m_plan(std::move(plan)) {}

QSharedPointer<PlanInfo> PlanInfo::create(const QSharedPointer<Orv::Info::Plan::Base>& plan)
{
    if (!plan)
        return {};
    if (auto backup = plan.dynamicCast<Orv::Info::Plan::BackupFile>())
        return QSharedPointer<PlanInfoBackupFile>::create(backup);
    if (auto restore = plan.dynamicCast<Orv::Info::Plan::RestoreFile>())
        return QSharedPointer<PlanInfoRestoreFile>::create(restore);
    return QSharedPointer<PlanInfo>::create(plan);
}

void PlanInfo::setDestination(const QString& name, Kel::Cloud::Type type)
{
    m_destinationName = name;
    m_destinationType = type;
}

QString PlanInfo::summary() const
{
    const QString destination =
        m_destinationName.isEmpty() ? QStringLiteral("Unknown") : m_destinationName;
    return line(QStringLiteral("Name                 : "), m_plan->name()) +
           line(QStringLiteral("Type                 : "), m_plan->type().toString()) +
           line(QStringLiteral("ID                   : "), m_plan->id().toString()) +
           line(QStringLiteral("Destination ID       : "), m_plan->storage().toString()) +
           line(QStringLiteral("Destination name     : "), destination);
}

QString PlanInfo::scheduleText(const Schedule& schedule)
{
    if (!schedule.isEnable() || schedule.type() == Schedule::Type::NoSchedule)
        return QStringLiteral("No schedule");
    if (schedule.type() == Schedule::Type::SpecificDate)
        return QStringLiteral("Once at ") + schedule.specificDate().toString(kDateTime);
    const QString time = timeOfDay(schedule);
    switch (schedule.frequencyType()) {
    case Schedule::FrequencyType::Daily:
        return QStringLiteral("Daily ") + time;
    case Schedule::FrequencyType::Weekly:
        return QStringLiteral("Weekly on %1 %2").arg(weekDays(schedule), time);
    case Schedule::FrequencyType::Monthly: {
        const Schedule::MonthlyFrequency monthly = schedule.monthlyFrequency();
        return QStringLiteral("Monthly on the %1 %2 %3%4")
            .arg(Schedule::WeekNumberString(monthly.weekNumber),
                 QLocale::c().dayName(monthly.dayOfWeek), time, monthRepeat(schedule));
    }
    case Schedule::FrequencyType::DayOfMonth:
        return QStringLiteral("Monthly on day %1 %2%3")
            .arg(schedule.dayOfMonthFrequency())
            .arg(time, monthRepeat(schedule));
    }
    return QStringLiteral("Unknown");
}

QString PlanInfo::stopAfterText(const Schedule& schedule)
{
    if (!schedule.isStopAfterEnabled())
        return QStringLiteral("Off");
    return QStringLiteral("%1 h %2 min")
        .arg(schedule.stopAfterHours())
        .arg(schedule.stopAfterMinutes());
}

QString PlanInfo::line(const QString& label, const QString& value)
{
    return label + value + QLatin1Char('\n');
}

QString PlanInfo::list(const QString& label, const QStringList& items)
{
    QString text = label + QLatin1Char('\n');
    for (const QString& item : items)
        text += QStringLiteral("    ") + item + QLatin1Char('\n');
    return text;
}

QString PlanInfo::yesNo(bool value)
{
    return value ? QStringLiteral("Yes") : QStringLiteral("No");
}

} // namespace Orv::CLI
