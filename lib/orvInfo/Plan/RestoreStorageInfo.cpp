#include "orvInfo/Plan/RestoreStorageInfo.h"

namespace Orv::Info::Plan {

const WordTable<RestoreStorageInfo::Type>& RestoreStorageInfo::words()
{
    static const WordTable<Type> table{{"Skip", Type::Skip},
                                       {"Standard", Type::Standard},
                                       {"Bulk", Type::Bulk},
                                       {"Expedited", Type::Expedited}};
    return table;
}

} // namespace Orv::Info::Plan
