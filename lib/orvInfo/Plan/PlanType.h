#pragma once

#include "orvInfo/Plan/WordTable.h"

#include <QString>

namespace Orv::Info::Plan {

// The kind of a plan. The numbers are those the service and the command line
// exchange; Backup is 0 and Restore 1 as the command line's PlanType.
class PlanType
{
public:
    enum Value
    {
        Backup = 0,
        Restore = 1,
        Sync = 2,
        Purge = 3,
    };

    PlanType(Value value = Backup) : m_value(value) {}
    Value value() const { return m_value; }
    // "Backup", "Restore", "Sync", "Purge": the display text, which is also
    // the word of the plan's Type attribute.
    QString toString() const;
    static const WordTable<Value>& words();

    bool operator==(const PlanType& other) const { return m_value == other.m_value; }
    bool operator!=(const PlanType& other) const { return m_value != other.m_value; }

private:
    Value m_value;
};

// The kind of data a plan works on.
class PlanSubtype
{
public:
    enum Value
    {
        File = 0,
        DiskImage = 1,
        SystemFullFile = 2,
        Unknown = 3,
    };

    PlanSubtype(Value value = File) : m_value(value) {}
    Value value() const { return m_value; }
    // "File", "Disk Image", "System Full File", "Unknown".
    QString toString() const;
    // The words of the plan's Subtype attribute ("File", "DiskImage", ...).
    static const WordTable<Value>& words();

    bool operator==(const PlanSubtype& other) const { return m_value == other.m_value; }
    bool operator!=(const PlanSubtype& other) const { return m_value != other.m_value; }

private:
    Value m_value;
};

} // namespace Orv::Info::Plan
