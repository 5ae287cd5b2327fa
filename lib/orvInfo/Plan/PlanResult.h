#pragma once

#include <QString>

namespace Orv::Info::Plan {

// The outcome of a plan's last run. Built from the number the service keeps
// in its run history; a number this version does not know gives Unknown
// rather than a wrong outcome.
class PlanResult
{
public:
    enum Value
    {
        Unknown = -1,
        NeverRun = 0,
        Success = 1,
        Warning = 2,
        Failed = 3,
        // Stopped on request or by the plan's stop-after limit.
        Stopped = 4,
        // The service ended during the run; counted as a failure.
        Interrupted = 5,
    };

    explicit PlanResult(int value = NeverRun);
    Value value() const { return m_value; }
    // The word: "NeverRun", "Success", "Warning", "Failed", "Stopped",
    // "Interrupted" or "Unknown".
    QString toString() const;
    // The text shown to the user: "Never run", "Success", "Success with
    // warnings", "Failed", "Stopped", "Failed (interrupted)" or "Unknown".
    QString displayName() const;
    bool isFailure() const { return m_value == Failed || m_value == Interrupted; }

    bool operator==(const PlanResult& other) const { return m_value == other.m_value; }
    bool operator!=(const PlanResult& other) const { return m_value != other.m_value; }

private:
    Value m_value;
};

} // namespace Orv::Info::Plan
