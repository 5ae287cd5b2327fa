#include "service/plans/Scheduler.h"

#include <QEventLoop>
#include <QVector>
#include <gtest/gtest.h>
#include <initializer_list>
#include <memory>
#include <time.h>
#include <utility>

using Orv::Info::Plan::Schedule;
using Orv::Service::nextOccurrence;
using Orv::Service::Scheduler;

namespace {

using Frequency = Schedule::FrequencyType;
using Week = Schedule::WeekNumber;

// ISO text; without an offset local time, with one ("+02:00") one pass of a
// repeated hour.
QDateTime at(const char* text)
{
    return QDateTime::fromString(QString::fromLatin1(text), Qt::ISODateWithMs);
}

// Times are compared as ISO text with their offset, so that failures show them.
std::string show(const QDateTime& time)
{
    if (!time.isValid())
        return "never";
    return time.toOffsetFromUtc(time.offsetFromUtc()).toString(Qt::ISODate).toStdString();
}

QTime hm(const char* text)
{
    return QTime::fromString(QString::fromLatin1(text), Qt::ISODate);
}

Schedule recurring(Frequency frequency, const char* time = "09:00")
{
    Schedule s;
    s.setEnable(true);
    s.setType(Schedule::Type::Recurring);
    s.setFrequencyType(frequency);
    s.setOccursAt(hm(time));
    return s;
}

Schedule once(const char* when)
{
    Schedule s = recurring(Frequency::Daily);
    s.setType(Schedule::Type::SpecificDate);
    s.setSpecificDate(at(when));
    return s;
}

Schedule every(int minutes, const char* from, const char* to,
               Schedule s = recurring(Frequency::Daily))
{
    s.setDailyRecurrence(true);
    s.setOccursEvery(Schedule::OccursEvery(minutes, hm(from), hm(to)));
    return s;
}

Schedule weekly(std::initializer_list<int> days, const char* time = "09:00")
{
    Schedule s = recurring(Frequency::Weekly, time);
    QBitArray bits(7);
    for (int day : days)
        bits.setBit(day - 1);
    s.setWeeklyFrequency(bits);
    return s;
}

// A week day of a week (`week`), or a day of the month (no `week`), every
// `months` months from `from`.
Schedule monthly(int day, Week week, int months = 1, const char* from = "2023-01-01")
{
    Schedule s = recurring(int(week) ? Frequency::Monthly : Frequency::DayOfMonth);
    s.setMonthlyFrequency(week, day);
    s.setDayOfMonthFrequency(day);
    s.setMonthRepeat(months, QDate::fromString(QString::fromLatin1(from), Qt::ISODate));
    return s;
}
const Week DayOfMonth = Week(0);

// Every case runs in a zone with daylight saving time: on 31 March 2024 the
// clock goes from 02:00 to 03:00, on 27 October 2024 from 03:00 back to 02:00.
class SchedulerTest : public ::testing::Test
{
protected:
    SchedulerTest() { setZone("Europe/Berlin"); }
    ~SchedulerTest() override { setZone(m_savedTz); }
    static void setZone(const QByteArray& zone)
    {
        zone.isNull() ? qunsetenv("TZ") : qputenv("TZ", zone);
        tzset();
    }

private:
    const QByteArray m_savedTz = qgetenv("TZ");
};

TEST_F(SchedulerTest, NextOccurrenceOfEveryForm)
{
    const Schedule nightly = every(60, "22:00", "02:00", weekly({5})); // Friday night
    const Schedule half = every(30, "01:00", "04:00");
    const struct
    {
        const char* name;
        Schedule schedule;
        const char* after;
        const char* expected; // null: never again
    } cases[] = {
        {"strictly after", recurring(Frequency::Daily), "2024-05-10T09:00", "2024-05-11T09:00"},
        {"once in the skipped hour", once("2024-03-31T02:30"), "2024-03-30T00:00",
         "2024-03-31T03:00+02:00"},
        {"window end included", every(15, "08:00", "09:00"), "2024-05-10T08:50",
         "2024-05-10T09:00"},
        {"window steps from its start", every(7, "08:00", "09:00"), "2024-05-10T08:56",
         "2024-05-11T08:00"},
        {"Friday night into Saturday", nightly, "2024-05-11T01:10", "2024-05-11T02:00"},
        {"Friday night closed", nightly, "2024-05-11T02:00", "2024-05-17T22:00"},
        {"weekly next week", weekly({1, 4}), "2024-05-10T12:00", "2024-05-13T09:00"},
        {"weekly no day", weekly({}), "2024-05-10T12:00", nullptr},
        {"penultimate of five", monthly(5, Week::Penultimate), "2024-05-01T00:00",
         "2024-05-24T09:00"},
        {"first Monday passed", monthly(1, Week::First), "2024-09-02T10:00", "2024-10-07T09:00"},
        {"quarterly, not before its start", monthly(1, Week::First, 3, "2024-01-15"),
         "2024-01-01T00:00", "2024-04-01T09:00"},
        {"31st in a 30-day month", monthly(31, DayOfMonth), "2024-04-05T00:00", "2024-04-30T09:00"},
        {"31st in a leap February", monthly(31, DayOfMonth), "2024-02-01T00:00",
         "2024-02-29T09:00"},
        {"every 2 months from the 31st", monthly(31, DayOfMonth, 2, "2024-01-31"),
         "2024-03-31T09:00", "2024-05-31T09:00"},
        {"yearly from 29 February", monthly(29, DayOfMonth, 12, "2024-02-29"), "2024-02-29T10:00",
         "2025-02-28T09:00"},
        {"skipped window times run once", half, "2024-03-31T01:45", "2024-03-31T03:00+02:00"},
        {"window over the repeated hour", half, "2024-10-27T02:30+02:00", "2024-10-27T03:00+01:00"},
        {"inside the second pass", half, "2024-10-27T02:15+01:00", "2024-10-27T03:00+01:00"},
    };
    for (const auto& c : cases) {
        const QDateTime expected = c.expected ? at(c.expected) : QDateTime();
        EXPECT_EQ(show(nextOccurrence(c.schedule, at(c.after))), show(expected)) << c.name;
    }
}

// A scheduler on a clock that the test moves; plan `id` runs daily at 10:00
// with a full run on Mondays at 10:00.
class SchedulerRunTest : public SchedulerTest
{
protected:
    using Dues = QVector<QPair<QUuid, bool>>;

    Scheduler::Entry entry(bool runMissed = false, const char* lastStart = nullptr)
    {
        return {id, recurring(Frequency::Daily, "10:00"), weekly({1}, "10:00"), runMissed,
                lastStart ? at(lastStart) : QDateTime()};
    }

    Scheduler& make(const Scheduler::Entry& plan)
    {
        scheduler.reset(new Scheduler([this] { return now; }));
        QObject::connect(scheduler.get(), &Scheduler::due, [this](const QUuid& plan, bool full) {
            dues.append({plan, full});
        });
        scheduler->setPlan(plan);
        return *scheduler;
    }

    // The dues since the last call.
    Dues checkAt(const char* when)
    {
        now = at(when);
        scheduler->check();
        return std::exchange(dues, {});
    }

    const QUuid id = QUuid::createUuid();
    QDateTime now = at("2024-05-13T08:00"); // a Monday
    std::unique_ptr<Scheduler> scheduler;
    Dues dues;
};

TEST_F(SchedulerRunTest, DueOnceAtItsTimeThenEditedAndRemoved)
{
    make(entry()).start();
    EXPECT_TRUE(checkAt("2024-05-13T09:59:59").isEmpty());
    // Set again, unchanged, after its time but before the check: still due.
    now = at("2024-05-13T10:00:00.200");
    scheduler->setPlan(entry());
    // The full schedule came due with the plan's own: one full run.
    EXPECT_EQ(checkAt("2024-05-13T10:00:00.300"), Dues({{id, true}}));
    EXPECT_TRUE(checkAt("2024-05-13T10:00:30").isEmpty());
    EXPECT_EQ(show(scheduler->nextFullRun(id)), show(at("2024-05-20T10:00")));
    EXPECT_EQ(checkAt("2024-05-14T10:00:01"), Dues({{id, false}}));

    scheduler->setPlan({id, recurring(Frequency::Daily, "11:00"), Schedule(), false, {}});
    EXPECT_TRUE(checkAt("2024-05-15T10:00").isEmpty());
    EXPECT_EQ(checkAt("2024-05-15T11:00"), Dues({{id, false}}));
    // The clock set back a day brings the next run back with it.
    EXPECT_TRUE(checkAt("2024-05-14T09:00").isEmpty());
    EXPECT_EQ(show(scheduler->nextRun(id)), show(at("2024-05-14T11:00")));

    scheduler->removePlan(id);
    EXPECT_FALSE(scheduler->nextRun(id).isValid());
    EXPECT_TRUE(checkAt("2024-05-14T11:00").isEmpty());
}

// Runs that nothing could start: the service was down (start() on Sunday
// noon), or the machine slept past them (started Monday 08:00, next check at
// noon). Only plans that ask for it catch up, and once.
TEST_F(SchedulerRunTest, MissedRunsFireOnceWhenAskedFor)
{
    const struct
    {
        const char* name;
        bool runMissed;
        const char* lastStart;
        bool slept;
        Dues expected;
    } cases[] = {
        {"two days down", true, "2024-05-10T10:00", false, {{id, false}}},
        {"down, not asked for", false, "2024-05-10T10:00", false, {}},
        {"down, nothing missed", true, "2024-05-12T10:30", false, {}},
        {"full run missed", true, "2024-05-05T10:00", false, {{id, true}}},
        {"slept past both", true, "2024-05-13T07:00", true, {{id, true}}},
        {"slept, not asked for", false, "2024-05-13T07:00", true, {}},
    };
    for (const auto& c : cases) {
        now = at(c.slept ? "2024-05-13T08:00" : "2024-05-12T12:00");
        make(entry(c.runMissed, c.lastStart)).start();
        const Dues got = c.slept ? checkAt("2024-05-13T12:00") : std::exchange(dues, {});
        EXPECT_EQ(got, c.expected) << c.name;
        EXPECT_EQ(show(scheduler->nextRun(id)),
                  show(at(c.slept ? "2024-05-14T10:00" : "2024-05-13T10:00")))
            << c.name;
    }
}

// The real clock and timer: a run 300 ms ahead comes due without a check().
TEST_F(SchedulerTest, TimerFiresAtTheRun)
{
    Scheduler scheduler;
    const QDateTime when = QDateTime::currentDateTime().addMSecs(300);
    const QByteArray text = when.toString(Qt::ISODateWithMs).toLatin1();
    scheduler.setPlan({QUuid::createUuid(), once(text.constData()), Schedule(), false, {}});
    scheduler.start();
    QEventLoop loop;
    bool fired = false;
    QObject::connect(&scheduler, &Scheduler::due, [&] {
        fired = true;
        loop.quit();
    });
    QTimer::singleShot(5000, &loop, &QEventLoop::quit);
    loop.exec();
    EXPECT_TRUE(fired);
    EXPECT_GE(QDateTime::currentMSecsSinceEpoch(), when.toMSecsSinceEpoch());
}

} // namespace
