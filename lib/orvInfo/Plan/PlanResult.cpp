#include "orvInfo/Plan/PlanResult.h"

namespace Orv::Info::Plan {

PlanResult::PlanResult(int value)
    : m_value(value >= NeverRun && value <= Interrupted ? static_cast<Value>(value) : Unknown)
{
}

QString PlanResult::toString() const
{
    switch (m_value) {
    case NeverRun:
        return QStringLiteral("NeverRun");
    case Success:
        return QStringLiteral("Success");
    case Warning:
        return QStringLiteral("Warning");
    case Failed:
        return QStringLiteral("Failed");
    case Stopped:
        return QStringLiteral("Stopped");
    case Interrupted:
        return QStringLiteral("Interrupted");
    case Unknown:
        break;
    }
    return QStringLiteral("Unknown");
}

QString PlanResult::displayName() const
{
    switch (m_value) {
    case NeverRun:
        return QStringLiteral("Never run");
    case Success:
        return QStringLiteral("Success");
    case Warning:
        return QStringLiteral("Success with warnings");
    case Failed:
        return QStringLiteral("Failed");
    case Stopped:
        return QStringLiteral("Stopped");
    case Interrupted:
        return QStringLiteral("Failed (interrupted)");
    case Unknown:
        break;
    }
    return QStringLiteral("Unknown");
}

} // namespace Orv::Info::Plan
