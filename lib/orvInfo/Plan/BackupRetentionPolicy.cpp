#include "orvInfo/Plan/BackupRetentionPolicy.h"

namespace Orv::Info::Plan {

const WordTable<BackupRetentionPolicy::FileAge::Unit>& BackupRetentionPolicy::FileAge::words()
{
    static const WordTable<Unit> table{
        {"Day", Unit::Day}, {"Week", Unit::Week}, {"Month", Unit::Month}, {"Year", Unit::Year}};
    return table;
}

const WordTable<BackupRetentionPolicy::Type>& BackupRetentionPolicy::words()
{
    static const WordTable<Type> table{{"Default", Type::Default}, {"Custom", Type::Custom}};
    return table;
}

} // namespace Orv::Info::Plan
