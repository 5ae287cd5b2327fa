#include "orvInfo/Plan/Schedule.h"

namespace Orv::Info::Plan {

Schedule::Schedule() : m_weeklyFrequency(7) {}

void Schedule::setWeeklyFrequency(const QBitArray& days)
{
    // Always seven days, so that a caller may index any week day.
    m_weeklyFrequency = days;
    m_weeklyFrequency.resize(7);
}

QString Schedule::WeekNumberString(WeekNumber week)
{
    return weekNumberWords().word(week);
}

const WordTable<Schedule::WeekNumber>& Schedule::weekNumberWords()
{
    static const WordTable<WeekNumber> table{{"First", WeekNumber::First},
                                             {"Second", WeekNumber::Second},
                                             {"Third", WeekNumber::Third},
                                             {"Fourth", WeekNumber::Fourth},
                                             {"Penultimate", WeekNumber::Penultimate},
                                             {"Last", WeekNumber::Last}};
    return table;
}

const WordTable<Schedule::FrequencyType>& Schedule::frequencyWords()
{
    static const WordTable<FrequencyType> table{{"Daily", FrequencyType::Daily},
                                                {"Weekly", FrequencyType::Weekly},
                                                {"Monthly", FrequencyType::Monthly},
                                                {"DayOfMonth", FrequencyType::DayOfMonth}};
    return table;
}

const WordTable<Schedule::Type>& Schedule::typeWords()
{
    static const WordTable<Type> table{{"SpecificDate", Type::SpecificDate},
                                       {"Recurring", Type::Recurring},
                                       {"NoSchedule", Type::NoSchedule}};
    return table;
}

} // namespace Orv::Info::Plan
