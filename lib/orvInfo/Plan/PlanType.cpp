#include "orvInfo/Plan/PlanType.h"

namespace Orv::Info::Plan {

const WordTable<PlanType::Value>& PlanType::words()
{
    static const WordTable<Value> table{
        {"Backup", Backup}, {"Restore", Restore}, {"Sync", Sync}, {"Purge", Purge}};
    return table;
}

QString PlanType::toString() const
{
    return words().word(m_value);
}

const WordTable<PlanSubtype::Value>& PlanSubtype::words()
{
    static const WordTable<Value> table{{"File", File},
                                        {"DiskImage", DiskImage},
                                        {"SystemFullFile", SystemFullFile},
                                        {"Unknown", Unknown}};
    return table;
}

QString PlanSubtype::toString() const
{
    switch (m_value) {
    case File:
        return QStringLiteral("File");
    case DiskImage:
        return QStringLiteral("Disk Image");
    case SystemFullFile:
        return QStringLiteral("System Full File");
    case Unknown:
        break;
    }
    return QStringLiteral("Unknown");
}

} // namespace Orv::Info::Plan
