#pragma once

#include "orvInfo/Plan/StorageInfo.h"
#include "orvInfo/Plan/WordTable.h"

namespace Orv::Info::Plan {

// Storage options of a restore plan (Restore::StorageInfo): how files in
// Amazon's long-term storage classes are retrieved. Standard by default.
class RestoreStorageInfo : public StorageInfo
{
public:
    enum class Type
    {
        // Files that would need a retrieval are left out.
        Skip = 0,
        Standard = 1,
        Bulk = 2,
        Expedited = 3,
    };

    Type type() const { return m_type; }
    void setType(Type type) { m_type = type; }

    // "Skip", "Standard", "Bulk", "Expedited".
    static const WordTable<Type>& words();

private:
    Type m_type = Type::Standard;
};

} // namespace Orv::Info::Plan
