// Next-run computation for many plans of mixed schedule forms, against the
// cost of copying their schedules.
//
//   build/bin/bench_scheduler                 # 10,000 plans, 21 rounds
//   build/bin/bench_scheduler --plans 50000 --rounds 11
//
// Runs in Europe/Berlin unless TZ is set, so that the time zone has daylight
// saving time as most machines' do.

#include "service/plans/Scheduler.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QVector>
#include <algorithm>
#include <cstdio>
#include <ctime>

using Orv::Info::Plan::Schedule;

namespace {

int argument(const QStringList& args, const QString& name, int fallback)
{
    const int at = args.indexOf(name);
    return at >= 0 && at + 1 < args.size() ? args.at(at + 1).toInt() : fallback;
}

QTime anyTime(QRandomGenerator& rng)
{
    return QTime(rng.bounded(24), rng.bounded(60));
}

// One of eight forms in turn, with random days and times.
Schedule makeSchedule(int index, QRandomGenerator& rng)
{
    Schedule s;
    s.setEnable(true);
    s.setType(Schedule::Type::Recurring);
    s.setOccursAt(anyTime(rng));
    QBitArray days(7);
    days.setBit(rng.bounded(7));
    days.setBit(rng.bounded(7));
    s.setWeeklyFrequency(days);
    s.setMonthRepeat(1 + rng.bounded(12), QDate(2024, 1, 1).addDays(rng.bounded(700)));
    switch (index % 8) {
    case 0:
        s.setFrequencyType(Schedule::FrequencyType::Daily);
        break;
    case 1:
    case 2: // a window, crossing midnight about half the time
        s.setFrequencyType(Schedule::FrequencyType::Daily);
        s.setDailyRecurrence(true);
        s.setOccursEvery(Schedule::OccursEvery(1 + rng.bounded(60), anyTime(rng), anyTime(rng)));
        break;
    case 3:
        s.setFrequencyType(Schedule::FrequencyType::Weekly);
        break;
    case 4:
        s.setFrequencyType(Schedule::FrequencyType::Weekly);
        s.setDailyRecurrence(true);
        s.setOccursEvery(Schedule::OccursEvery(15, QTime(8, 0), QTime(18, 0)));
        break;
    case 5:
        s.setFrequencyType(Schedule::FrequencyType::Monthly);
        s.setMonthlyFrequency(Schedule::WeekNumber(1 + rng.bounded(6)), 1 + rng.bounded(7));
        break;
    case 6:
        s.setFrequencyType(Schedule::FrequencyType::DayOfMonth);
        s.setDayOfMonthFrequency(1 + rng.bounded(31));
        break;
    default:
        s.setType(Schedule::Type::SpecificDate);
        s.setSpecificDate(QDateTime(QDate(2025, 1, 1).addDays(rng.bounded(700)), anyTime(rng)));
        break;
    }
    return s;
}

double median(QVector<double> samples)
{
    std::sort(samples.begin(), samples.end());
    return samples.at(samples.size() / 2);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const int plans = argument(args, QStringLiteral("--plans"), 10000);
    const int rounds = argument(args, QStringLiteral("--rounds"), 21);
    if (!qEnvironmentVariableIsSet("TZ"))
        qputenv("TZ", "Europe/Berlin");
    tzset();

    QRandomGenerator rng(20240331);
    QVector<Schedule> schedules;
    schedules.reserve(plans);
    for (int i = 0; i < plans; ++i)
        schedules.append(makeSchedule(i, rng));
    // Spread over a year with both clock changes in it.
    QVector<QDateTime> afters;
    afters.reserve(plans);
    for (int i = 0; i < plans; ++i)
        afters.append(QDateTime(QDate(2024, 1, 1).addDays(rng.bounded(366)), anyTime(rng)));

    QVector<double> copyMs;
    QVector<double> nextMs;
    qint64 checksum = 0;
    for (int round = 0; round < rounds; ++round) {
        QElapsedTimer timer;
        timer.start();
        // A deep copy: the weekly flags are the one shared member.
        QVector<Schedule> copies;
        copies.reserve(plans);
        for (const Schedule& s : schedules) {
            copies.append(s);
            copies.last().setWeeklyFrequency(s.weeklyFrequency());
        }
        copyMs.append(timer.nsecsElapsed() / 1e6);
        checksum += copies.size();

        timer.restart();
        for (int i = 0; i < plans; ++i) {
            const QDateTime next = Orv::Service::nextOccurrence(schedules.at(i), afters.at(i));
            checksum += next.isValid() ? next.toMSecsSinceEpoch() / 60000 % 1000 : 1;
        }
        nextMs.append(timer.nsecsElapsed() / 1e6);
    }

    const double copy = median(copyMs);
    const double next = median(nextMs);
    std::printf("time zone %s, %d plans, median of %d rounds (checksum %lld)\n",
                qgetenv("TZ").constData(), plans, rounds, static_cast<long long>(checksum));
    std::printf("  baseline: copy the schedules   %8.2f ms\n", copy);
    std::printf("  next run of every plan         %8.2f ms  (%.1f x baseline, %.2f us a plan)\n",
                next, next / copy, next * 1000.0 / plans);
    return 0;
}
