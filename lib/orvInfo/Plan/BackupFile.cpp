#include "orvInfo/Plan/BackupFile.h"

namespace Orv::Info::Plan {

const WordTable<BackupFile::FilterType>& BackupFile::filterWords()
{
    static const WordTable<FilterType> table{{"backup", FilterType::BackupMatching},
                                             {"skip", FilterType::SkipMatching},
                                             {"all", FilterType::NoFilter}};
    return table;
}

} // namespace Orv::Info::Plan
