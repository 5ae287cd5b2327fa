#pragma once

#include "orvInfo/Plan/WordTable.h"

#include <QBitArray>
#include <QDate>
#include <QDateTime>
#include <QString>
#include <QTime>

namespace Orv::Info::Plan {

// When a plan runs. A plan has one; a backup plan has a second one for its
// forced full backups.
//
// Days of the week are numbered as Qt::DayOfWeek, 1 = Monday to 7 = Sunday;
// in weeklyFrequency() bit 0 is Monday and bit 6 Sunday. Times of day and
// dates are local time.
//
// A fresh schedule is off (NoSchedule, not enabled) and, once switched to a
// recurring one, runs daily at midnight; a daily repetition defaults to every
// 60 minutes over the whole day, a monthly one to the first Monday, every
// month; there is no stop-after limit.
class Schedule
{
public:
    // The numbers 0 and 1 are the ones the command line sets.
    enum class Type
    {
        SpecificDate = 0,
        Recurring = 1,
        NoSchedule = 2,
    };
    enum class FrequencyType
    {
        Daily = 0,
        Weekly = 1,
        // On a week day of a given week of the month.
        Monthly = 2,
        // On a day of the month.
        DayOfMonth = 3,
    };
    // The command line's "monthly-type-value" 1 to 6.
    enum class WeekNumber
    {
        First = 1,
        Second = 2,
        Third = 3,
        Fourth = 4,
        Penultimate = 5,
        Last = 6,
    };

    // A repetition within each day: every `minutes` from `from` to `to`.
    class OccursEvery
    {
    public:
        OccursEvery() = default;
        OccursEvery(int minutes, const QTime& from, const QTime& to)
            : m_minutes(minutes), m_from(from), m_to(to)
        {
        }
        int minutes() const { return m_minutes; }
        QTime fromTime() const { return m_from; }
        QTime toTime() const { return m_to; }

        bool operator==(const OccursEvery& other) const
        {
            return m_minutes == other.m_minutes && m_from == other.m_from && m_to == other.m_to;
        }
        bool operator!=(const OccursEvery& other) const { return !(*this == other); }

    private:
        int m_minutes = 60;
        QTime m_from = QTime(0, 0);
        QTime m_to = QTime(23, 59);
    };

    struct MonthlyFrequency
    {
        WeekNumber weekNumber = WeekNumber::First;
        int dayOfWeek = Qt::Monday;

        bool operator==(const MonthlyFrequency& other) const
        {
            return weekNumber == other.weekNumber && dayOfWeek == other.dayOfWeek;
        }
    };

    Schedule();

    bool isEnable() const { return m_enable; }
    void setEnable(bool enable) { m_enable = enable; }
    Type type() const { return m_type; }
    Type scheduleType() const { return m_type; }
    void setType(Type type) { m_type = type; }
    QDateTime specificDate() const { return m_specificDate; }
    void setSpecificDate(const QDateTime& date) { m_specificDate = date; }

    FrequencyType frequencyType() const { return m_frequencyType; }
    void setFrequencyType(FrequencyType type) { m_frequencyType = type; }
    // Within a day: true repeats by occursEvery(), false runs once at occursAt().
    bool dailyRecurrence() const { return m_dailyRecurrence; }
    void setDailyRecurrence(bool repeat) { m_dailyRecurrence = repeat; }
    QTime occursAt() const { return m_occursAt; }
    void setOccursAt(const QTime& time) { m_occursAt = time; }
    OccursEvery occursEvery() const { return m_occursEvery; }
    void setOccursEvery(const OccursEvery& every) { m_occursEvery = every; }
    // Seven bits, Monday first.
    QBitArray weeklyFrequency() const { return m_weeklyFrequency; }
    void setWeeklyFrequency(const QBitArray& days);
    MonthlyFrequency monthlyFrequency() const { return m_monthlyFrequency; }
    void setMonthlyFrequency(WeekNumber week, int dayOfWeek)
    {
        m_monthlyFrequency = {week, dayOfWeek};
    }
    int dayOfMonthFrequency() const { return m_dayOfMonth; }
    void setDayOfMonthFrequency(int day) { m_dayOfMonth = day; }
    // Every monthRepeat() months, counted from monthRepeatFrom().
    int monthRepeat() const { return m_monthRepeat; }
    QDate monthRepeatFrom() const { return m_monthRepeatFrom; }
    void setMonthRepeat(int months, const QDate& from)
    {
        m_monthRepeat = months;
        m_monthRepeatFrom = from;
    }

    // The longest a run may last, in milliseconds; 0 is no limit.
    quint64 stopAfter() const { return m_stopAfter; }
    void setStopAfter(quint64 milliseconds) { m_stopAfter = milliseconds; }
    bool isStopAfterEnabled() const { return m_stopAfter != 0; }
    // The limit split into whole hours and the remaining whole minutes.
    quint64 stopAfterHours() const { return m_stopAfter / 3600000; }
    int stopAfterMinutes() const { return int(m_stopAfter / 60000 % 60); }

    // "First", "Second", "Third", "Fourth", "Penultimate", "Last".
    static QString WeekNumberString(WeekNumber week);
    static const WordTable<WeekNumber>& weekNumberWords();
    // "Daily", "Weekly", "Monthly", "DayOfMonth".
    static const WordTable<FrequencyType>& frequencyWords();
    // "SpecificDate", "Recurring", "NoSchedule".
    static const WordTable<Type>& typeWords();

private:
    bool m_enable = false;
    Type m_type = Type::NoSchedule;
    QDateTime m_specificDate;
    FrequencyType m_frequencyType = FrequencyType::Daily;
    bool m_dailyRecurrence = false;
    QTime m_occursAt = QTime(0, 0);
    OccursEvery m_occursEvery;
    QBitArray m_weeklyFrequency;
    MonthlyFrequency m_monthlyFrequency;
    int m_dayOfMonth = 1;
    int m_monthRepeat = 1;
    QDate m_monthRepeatFrom;
    quint64 m_stopAfter = 0;
};

} // namespace Orv::Info::Plan
