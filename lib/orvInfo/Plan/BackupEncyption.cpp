#include "orvInfo/Plan/BackupEncyption.h"

namespace Orv::Info::Plan {

QString BackupEncyption::encryprtionAlgorithmToString(Type type)
{
    switch (type) {
    case AES128:
        return QStringLiteral("AES-128");
    case AES192:
        return QStringLiteral("AES-192");
    case AES256:
        return QStringLiteral("AES-256");
    case Undefined:
        break;
    }
    return QStringLiteral("Undefined");
}

const WordTable<BackupEncyption::Type>& BackupEncyption::words()
{
    static const WordTable<Type> table{
        {"aes-128", AES128}, {"aes-192", AES192}, {"aes-256", AES256}};
    return table;
}

} // namespace Orv::Info::Plan
