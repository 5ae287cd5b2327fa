#include "orvInfo/Plan/Notification.h"

namespace Orv::Info::Plan {

const WordTable<Notification::Type>& Notification::words()
{
    static const WordTable<Type> table{
        {"on", Type::On}, {"off", Type::Off}, {"error-only", Type::ErrorOnly}};
    return table;
}

} // namespace Orv::Info::Plan
