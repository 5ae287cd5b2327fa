#pragma once

#include <QString>

namespace Orv::Info::Plan {

// What a plan is doing now, as the service reports it in the plan list.
class PlanStatus
{
public:
    enum Value
    {
        Unknown = -1,
        Idle = 0,
        // Start was asked for and the run waits for its turn.
        Queued = 1,
        Running = 2,
        // Stop was asked for and the run winds down.
        Stopping = 3,
    };

    PlanStatus(Value value = Idle) : m_value(value) {}
    // Numbers outside the enumeration give Unknown.
    static PlanStatus fromInt(int value);
    Value value() const { return m_value; }
    // "Idle", "Queued", "Running", "Stopping" or "Unknown".
    QString toString() const;
    // Queued, running or stopping: a plan in any of these states is not
    // started again, and only such a plan can be stopped.
    bool isRunning() const
    {
        return m_value == Queued || m_value == Running || m_value == Stopping;
    }

    bool operator==(const PlanStatus& other) const { return m_value == other.m_value; }
    bool operator!=(const PlanStatus& other) const { return m_value != other.m_value; }

private:
    Value m_value;
};

} // namespace Orv::Info::Plan
