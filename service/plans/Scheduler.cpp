#include "service/plans/Scheduler.h"

#include <QVector>
#include <ctime>

namespace Orv::Service {

using Orv::Info::Plan::Schedule;

namespace {

constexpr qint64 MSecsPerMinute = 60 * 1000;
constexpr qint64 MSecsPerHour = 60 * MSecsPerMinute;
constexpr qint64 MSecsPerDay = 24 * MSecsPerHour;
constexpr qint64 EpochJulianDay = 2440588; // 1 January 1970

qint64 floorDiv(qint64 a, qint64 b)
{
    return a / b - (a % b != 0 && (a < 0) != (b < 0));
}

qint64 floorMod(qint64 a, qint64 b)
{
    return a - floorDiv(a, b) * b;
}

// All the work is done on "wall" times: the local clock's reading in
// milliseconds, counted as if it were UTC. Turning one into an instant is the
// only place where the time zone matters.

// The local offset from UTC at an instant. The C library rather than QDateTime:
// this is the inner loop, and both read the same zone data.
qint64 offsetAt(qint64 instant)
{
    const time_t seconds = time_t(floorDiv(instant, 1000));
    tm parts{};
    if (!localtime_r(&seconds, &parts))
        return 0;
    return qint64(parts.tm_gmtoff) * 1000;
}

qint64 wallOf(const QDate& date, qint64 msecsOfDay)
{
    return (date.toJulianDay() - EpochJulianDay) * MSecsPerDay + msecsOfDay;
}

QDate dateOfWall(qint64 wall)
{
    return QDate::fromJulianDay(floorDiv(wall, MSecsPerDay) + EpochJulianDay);
}

// The first instant at or after `from` with the offset `offset`, to the second;
// `from` has another offset and `to` this one.
qint64 changeBetween(qint64 from, qint64 to, qint64 offset)
{
    qint64 low = floorDiv(from, 1000);
    qint64 high = floorDiv(to + 999, 1000);
    while (high - low > 1) {
        const qint64 middle = low + (high - low) / 2;
        if (offsetAt(middle * 1000) == offset)
            high = middle;
        else
            low = middle;
    }
    return high * 1000;
}

// The instant at which the local clock reads `wall`: its first pass when the
// clock reads it twice, the change when it skips it. Assumes at most one
// change of offset within a day and a bit, which holds for every zone in use.
qint64 instantOf(qint64 wall)
{
    // Offsets lie between -12 and +14 hours, so every instant that reads
    // `wall` lies between these two probes.
    const qint64 before = offsetAt(wall - 15 * MSecsPerHour);
    const qint64 after = offsetAt(wall + 13 * MSecsPerHour);
    if (before == after)
        return wall - before;
    const qint64 withBefore = wall - before;
    const qint64 withAfter = wall - after;
    const bool beforeHolds = offsetAt(withBefore) == before;
    const bool afterHolds = offsetAt(withAfter) == after;
    if (beforeHolds && afterHolds)
        return qMin(withBefore, withAfter);
    if (beforeHolds)
        return withBefore;
    if (afterHolds)
        return withAfter;
    // Skipped: the clock jumps from before `wall` to after it.
    return changeBetween(qMin(withBefore, withAfter), qMax(withBefore, withAfter), after);
}

// The times of day at which a recurring schedule fires, as milliseconds from
// the start of a day on which it runs; `last` is past midnight for a window
// that crosses it.
struct DayTimes
{
    qint64 first = 0;
    qint64 last = 0;
    qint64 step = MSecsPerDay;
};

bool dayTimes(const Schedule& schedule, DayTimes& times)
{
    if (!schedule.dailyRecurrence()) {
        const QTime at = schedule.occursAt();
        if (!at.isValid())
            return false;
        times.first = times.last = at.msecsSinceStartOfDay();
        return true;
    }
    const Schedule::OccursEvery every = schedule.occursEvery();
    if (every.minutes() < 1 || !every.fromTime().isValid() || !every.toTime().isValid())
        return false;
    times.first = every.fromTime().msecsSinceStartOfDay();
    times.last = every.toTime().msecsSinceStartOfDay();
    if (times.last < times.first)
        times.last += MSecsPerDay;
    times.step = every.minutes() * MSecsPerMinute;
    return true;
}

// The day of the given month on which a Monthly or DayOfMonth schedule runs;
// months are counted from January of year 0.
QDate dayInMonth(const Schedule& schedule, qint64 monthIndex)
{
    const QDate first(int(floorDiv(monthIndex, 12)), int(floorMod(monthIndex, 12)) + 1, 1);
    const int length = first.daysInMonth();
    if (schedule.frequencyType() == Schedule::FrequencyType::DayOfMonth) {
        const int day = schedule.dayOfMonthFrequency();
        if (day < 1 || day > 31)
            return {};
        return first.addDays(qMin(day, length) - 1);
    }
    const Schedule::MonthlyFrequency monthly = schedule.monthlyFrequency();
    const int weekDay = monthly.dayOfWeek;
    if (weekDay < Qt::Monday || weekDay > Qt::Sunday)
        return {};
    const int firstOne = 1 + (weekDay - first.dayOfWeek() + 7) % 7;
    const QDate lastDay = first.addDays(length - 1);
    const int lastOne = length - (lastDay.dayOfWeek() - weekDay + 7) % 7;
    switch (monthly.weekNumber) {
    case Schedule::WeekNumber::First:
    case Schedule::WeekNumber::Second:
    case Schedule::WeekNumber::Third:
    case Schedule::WeekNumber::Fourth:
        return first.addDays(firstOne - 1 + 7 * (int(monthly.weekNumber) - 1));
    case Schedule::WeekNumber::Penultimate:
        return first.addDays(lastOne - 1 - 7);
    case Schedule::WeekNumber::Last:
        return first.addDays(lastOne - 1);
    }
    return {};
}

qint64 monthIndexOf(const QDate& date)
{
    return qint64(date.year()) * 12 + date.month() - 1;
}

QDate firstMonthlyDay(const Schedule& schedule, const QDate& from)
{
    const int every = qMax(1, schedule.monthRepeat());
    const QDate start = schedule.monthRepeatFrom();
    const QDate earliest = start.isValid() && start > from ? start : from;
    const qint64 anchor = start.isValid() ? monthIndexOf(start) : 0;
    qint64 month = monthIndexOf(earliest);
    const qint64 offBeat = floorMod(month - anchor, every);
    if (offBeat != 0)
        month += every - offBeat;
    // The day in the first month may lie before `earliest`; the next one
    // counted cannot.
    for (int tries = 0; tries < 2; ++tries, month += every) {
        const QDate day = dayInMonth(schedule, month);
        if (!day.isValid())
            return {};
        if (day >= earliest)
            return day;
    }
    return {};
}

// The first day from `from` on which a recurring schedule runs; invalid when
// there is none.
QDate firstRunDay(const Schedule& schedule, const QDate& from)
{
    switch (schedule.frequencyType()) {
    case Schedule::FrequencyType::Daily:
        return from;
    case Schedule::FrequencyType::Weekly: {
        const QBitArray days = schedule.weeklyFrequency();
        for (int i = 0; i < 7; ++i) {
            const QDate day = from.addDays(i);
            const int bit = day.dayOfWeek() - 1;
            if (bit < days.size() && days.testBit(bit))
                return day;
        }
        return {};
    }
    case Schedule::FrequencyType::Monthly:
    case Schedule::FrequencyType::DayOfMonth:
        return firstMonthlyDay(schedule, from);
    }
    return {};
}

// The first wall time after `threshold` at which a recurring schedule fires.
bool firstSlotAfter(const Schedule& schedule, qint64 threshold, qint64& slot)
{
    DayTimes times;
    if (!dayTimes(schedule, times))
        return false;
    QDate day = dateOfWall(threshold);
    // The previous day's window may still be open.
    if (times.last >= MSecsPerDay)
        day = day.addDays(-1);
    day = firstRunDay(schedule, day);
    // The first day looked at either has a time after the threshold or its
    // last time is before it; then at most one more day lies before the
    // threshold's, and the day after that starts after it.
    for (int tries = 0; tries < 3 && day.isValid(); ++tries) {
        const qint64 dayStart = wallOf(day, 0);
        slot = dayStart + times.first;
        if (slot <= threshold)
            slot += ((threshold - slot) / times.step + 1) * times.step;
        if (slot <= dayStart + times.last)
            return true;
        day = firstRunDay(schedule, day.addDays(1));
    }
    return false;
}

QDateTime localAt(qint64 instant)
{
    return QDateTime::fromMSecsSinceEpoch(instant, Qt::LocalTime);
}

QDateTime nextSpecificDate(const Schedule& schedule, qint64 after)
{
    const QDateTime at = schedule.specificDate();
    qint64 instant = 0;
    // A local time that the clock skips makes an invalid QDateTime that still
    // holds its date and time; it runs at the change, as recurring times do.
    if (at.timeSpec() == Qt::LocalTime && at.date().isValid() && at.time().isValid())
        instant = instantOf(wallOf(at.date(), at.time().msecsSinceStartOfDay()));
    else if (at.isValid())
        instant = at.toMSecsSinceEpoch();
    else
        return {};
    if (instant <= after)
        return {};
    return localAt(instant);
}

} // namespace

QDateTime nextOccurrence(const Schedule& schedule, const QDateTime& after)
{
    if (!schedule.isEnable() || !after.isValid())
        return {};
    const qint64 afterInstant = after.toMSecsSinceEpoch();
    if (schedule.type() == Schedule::Type::SpecificDate)
        return nextSpecificDate(schedule, afterInstant);
    if (schedule.type() != Schedule::Type::Recurring)
        return {};

    qint64 threshold = afterInstant + offsetAt(afterInstant);
    // Twice at most: when `after` lies in the second pass of a repeated hour,
    // the first wall time found may have fired on the first pass already.
    for (int tries = 0; tries < 3; ++tries) {
        qint64 slot = 0;
        if (!firstSlotAfter(schedule, threshold, slot))
            return {};
        const qint64 instant = instantOf(slot);
        if (instant > afterInstant)
            return localAt(instant);
        // The slot fired on the first pass of the repeated hour that `after`
        // is in the second pass of: the rest of that hour's wall times did too.
        const qint64 change = changeBetween(instant, afterInstant, offsetAt(afterInstant));
        threshold = qMax(slot, change + offsetAt(instant) - 1);
    }
    return {};
}

Scheduler::Scheduler(QObject* parent)
    : Scheduler([] { return QDateTime::currentDateTime(); }, parent)
{
}

Scheduler::Scheduler(Clock clock, QObject* parent) : QObject(parent), m_clock(std::move(clock))
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &Scheduler::check);
}

qint64 Scheduler::now() const
{
    return m_clock().toMSecsSinceEpoch();
}

void Scheduler::reschedule(Plan& plan, const QDateTime& from)
{
    const QDateTime next = nextOccurrence(plan.entry.schedule, from);
    const QDateTime nextFull = nextOccurrence(plan.entry.fullSchedule, from);
    plan.next = next.isValid() ? next.toMSecsSinceEpoch() : Never;
    plan.nextFull = nextFull.isValid() ? nextFull.toMSecsSinceEpoch() : Never;
}

// A time that came due but was not checked yet stays due when its plan is set
// again, as long as the new schedule has that time too: whoever reloads all
// plans at once must not make one of them skip its run.
static void keepPending(qint64& next, qint64 pending, qint64 current, const Schedule& schedule)
{
    if (pending > current)
        return;
    const QDateTime same = nextOccurrence(schedule, QDateTime::fromMSecsSinceEpoch(pending - 1));
    if (same.isValid() && same.toMSecsSinceEpoch() == pending)
        next = pending;
}

void Scheduler::setPlan(const Entry& entry)
{
    const QDateTime current = m_clock();
    Plan plan{entry, Never, Never};
    reschedule(plan, current);
    const auto old = m_plans.constFind(entry.planId);
    if (old != m_plans.constEnd()) {
        const qint64 instant = current.toMSecsSinceEpoch();
        keepPending(plan.next, old->next, instant, entry.schedule);
        keepPending(plan.nextFull, old->nextFull, instant, entry.fullSchedule);
    }
    m_plans.insert(entry.planId, plan);
    arm();
}

void Scheduler::removePlan(const QUuid& planId)
{
    if (m_plans.remove(planId) > 0)
        arm();
}

QDateTime Scheduler::nextRun(const QUuid& planId) const
{
    const auto it = m_plans.constFind(planId);
    if (it == m_plans.constEnd() || it->next == Never)
        return {};
    return localAt(it->next);
}

QDateTime Scheduler::nextFullRun(const QUuid& planId) const
{
    const auto it = m_plans.constFind(planId);
    if (it == m_plans.constEnd() || it->nextFull == Never)
        return {};
    return localAt(it->nextFull);
}

void Scheduler::start()
{
    // The C library reads the time zone once; a change of it since then is
    // picked up here and on every check.
    tzset();
    m_started = true;
    const QDateTime current = m_clock();
    m_lastCheck = current.toMSecsSinceEpoch();
    QVector<QPair<QUuid, bool>> missed;
    for (Plan& plan : m_plans) {
        reschedule(plan, current);
        const Entry& entry = plan.entry;
        if (!entry.runMissed || !entry.lastStart.isValid())
            continue;
        const QDateTime run = nextOccurrence(entry.schedule, entry.lastStart);
        const QDateTime fullRun = nextOccurrence(entry.fullSchedule, entry.lastStart);
        const bool full = fullRun.isValid() && fullRun <= current;
        if (full || (run.isValid() && run <= current))
            missed.append({entry.planId, full});
    }
    arm();
    for (const auto& plan : missed)
        emit due(plan.first, plan.second);
}

void Scheduler::check()
{
    tzset();
    const QDateTime current = m_clock();
    const qint64 instant = current.toMSecsSinceEpoch();
    // A clock set back would leave every plan waiting for a time that now lies
    // further ahead than its schedule says.
    const bool clockWentBack = instant < m_lastCheck - 1000;
    m_lastCheck = instant;

    QVector<QPair<QUuid, bool>> dueNow;
    for (Plan& plan : m_plans) {
        if (clockWentBack)
            reschedule(plan, current);
        const bool regular = plan.next <= instant;
        const bool full = plan.nextFull <= instant;
        if (!regular && !full)
            continue;
        const qint64 latest = qMax(regular ? plan.next : 0, full ? plan.nextFull : 0);
        const bool missed = latest < instant - LateGraceMSecs;
        reschedule(plan, current);
        if (!missed || plan.entry.runMissed)
            dueNow.append({plan.entry.planId, full});
    }
    arm();
    // Emitted last: a receiver may change the plans.
    for (const auto& plan : dueNow)
        emit due(plan.first, plan.second);
}

void Scheduler::arm()
{
    if (!m_started)
        return;
    qint64 earliest = Never;
    for (const Plan& plan : qAsConst(m_plans))
        earliest = qMin(earliest, qMin(plan.next, plan.nextFull));
    const qint64 wait = earliest == Never ? RecheckMSecs : earliest - now();
    m_timer.start(int(qBound<qint64>(0, wait, RecheckMSecs)));
}

} // namespace Orv::Service
