#include "orvInfo/Plan/Restore.h"

namespace Orv::Info::Plan {

QString Restore::RestoretTypeString(RestoreType type)
{
    switch (type) {
    case RestoreType::LatestVersion:
        return QStringLiteral("Latest version");
    case RestoreType::PointInTime:
        return QStringLiteral("Point in time");
    }
    return QStringLiteral("Unknown");
}

const WordTable<Restore::RestoreType>& Restore::restoreTypeWords()
{
    static const WordTable<RestoreType> table{{"LatestVersion", RestoreType::LatestVersion},
                                              {"PointInTime", RestoreType::PointInTime}};
    return table;
}

const WordTable<Restore::DeleteType>& Restore::deleteTypeWords()
{
    static const WordTable<DeleteType> table{{"Never", DeleteType::Never},
                                             {"OnSucceeds", DeleteType::OnSucceeds}};
    return table;
}

} // namespace Orv::Info::Plan
