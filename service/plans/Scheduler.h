#pragma once

#include "orvInfo/Plan/Schedule.h"

#include <QDateTime>
#include <QHash>
#include <QObject>
#include <QTimer>
#include <QUuid>
#include <functional>
#include <limits>

namespace Orv::Service {

// The first moment strictly after `after` at which the schedule fires, in
// local time; invalid when it never fires again (off, no schedule, a one-time
// date already passed, no week day chosen, a day or time that is not one).
//
// How the forms are read:
// - Within each day on which a recurring schedule runs, it fires once at
//   occursAt(), or every n minutes from the window's start up to and
//   including its end. The count starts again at the window's start each day.
//   A window that ends before it starts crosses midnight: it opens on the
//   chosen day and closes the next morning, so a weekly Friday 22:00 to 02:00
//   window runs into Saturday's early hours.
// - Monthly and DayOfMonth run in every monthRepeat()-th month counted from
//   the month of monthRepeatFrom(), never before that date itself (without
//   that date, months are counted from January of year 0). A day of the
//   month that a month lacks (the 31st in April, the 30th in February) falls
//   on that month's last day. Penultimate is the second to last such week
//   day of the month.
// - Times are wall-clock times. One that does not exist on a day (the hour
//   skipped when clocks go forward) fires at the first moment after it, the
//   change itself; several such times fire there once. One that occurs twice
//   (the hour repeated when clocks go back) fires on its first pass only.
//
// Constant time per call: at most a few days and months are looked at,
// whatever the gap to the next run.
QDateTime nextOccurrence(const Orv::Info::Plan::Schedule& schedule, const QDateTime& after);

// Tells when each plan is due. It keeps every plan's next run and next forced
// full run, and one timer for the earliest of them; the timer also wakes at
// least once a minute, so that a change of the clock or a suspend of the
// machine is noticed soon. It does not know whether a plan is running: whoever
// starts plans ignores due() for one that is.
class Scheduler : public QObject
{
    Q_OBJECT
public:
    using Clock = std::function<QDateTime()>;

    struct Entry
    {
        QUuid planId;
        Orv::Info::Plan::Schedule schedule;
        // Off for plans without forced full backups.
        Orv::Info::Plan::Schedule fullSchedule;
        bool runMissed = false;
        // When the plan last started; invalid when it never did.
        QDateTime lastStart;
    };

    // A run more than this late (the machine slept, the service was stopped
    // or the clock jumped forward) was missed: it starts only for plans that
    // run missed runs.
    static constexpr qint64 LateGraceMSecs = 2 * 60 * 1000;
    // The longest the timer waits before looking at the clock again.
    static constexpr int RecheckMSecs = 60 * 1000;

    explicit Scheduler(QObject* parent = nullptr);
    explicit Scheduler(Clock clock, QObject* parent = nullptr);

    // Adds or replaces a plan; its next times count from now, but a time that
    // came due and was not checked yet stays due if the schedule still has it.
    void setPlan(const Entry& entry);
    void removePlan(const QUuid& planId);
    // Invalid for an unknown plan or one that never runs again.
    QDateTime nextRun(const QUuid& planId) const;
    QDateTime nextFullRun(const QUuid& planId) const;

    // Called once at service start, after the plans were set: a plan that
    // runs missed runs and whose schedule fired since its last start is due at
    // once (once, however many runs it missed); then the timer runs.
    void start();
    // Emits due() for every plan whose time has come and moves it on to its
    // next time. The timer calls it; tests call it after moving their clock.
    void check();

signals:
    // `full` when the forced full schedule came due, alone or together with
    // the plan's own.
    void due(const QUuid& planId, bool full);

private:
    struct Plan
    {
        Entry entry;
        // Milliseconds since the epoch; Never when it does not run again.
        qint64 next;
        qint64 nextFull;
    };

    static constexpr qint64 Never = std::numeric_limits<qint64>::max();

    qint64 now() const;
    static void reschedule(Plan& plan, const QDateTime& from);
    void arm();

    Clock m_clock;
    QHash<QUuid, Plan> m_plans;
    QTimer m_timer;
    qint64 m_lastCheck = 0;
    bool m_started = false;
};

} // namespace Orv::Service
