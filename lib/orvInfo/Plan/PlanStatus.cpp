#include "orvInfo/Plan/PlanStatus.h"

namespace Orv::Info::Plan {

PlanStatus PlanStatus::fromInt(int value)
{
    return value >= Idle && value <= Stopping ? PlanStatus(static_cast<Value>(value))
                                              : PlanStatus(Unknown);
}

QString PlanStatus::toString() const
{
    switch (m_value) {
    case Idle:
        return QStringLiteral("Idle");
    case Queued:
        return QStringLiteral("Queued");
    case Running:
        return QStringLiteral("Running");
    case Stopping:
        return QStringLiteral("Stopping");
    case Unknown:
        break;
    }
    return QStringLiteral("Unknown");
}

} // namespace Orv::Info::Plan
