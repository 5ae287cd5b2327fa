#include "orvInfo/Plan/BackupStorageInfo.h"

namespace Orv::Info::Plan {

QString BackupStorageInfo::AmazonS3StorageClass2String(AmazonS3StorageClass storageClass)
{
    switch (storageClass) {
    case AmazonS3StorageClass::Standard:
        return QStringLiteral("Standard");
    case AmazonS3StorageClass::StandardIA:
        return QStringLiteral("Standard-IA");
    case AmazonS3StorageClass::OneZoneIA:
        return QStringLiteral("One Zone-IA");
    case AmazonS3StorageClass::Glacier:
        return QStringLiteral("Glacier Flexible Retrieval");
    case AmazonS3StorageClass::Intelligent:
        return QStringLiteral("Intelligent-Tiering");
    case AmazonS3StorageClass::DeepArchive:
        return QStringLiteral("Glacier Deep Archive");
    case AmazonS3StorageClass::GlacierIR:
        return QStringLiteral("Glacier Instant Retrieval");
    }
    return QStringLiteral("Unknown");
}

QString BackupStorageInfo::AzureBlobStorageClass2String(AzureBlobStorageClass storageClass)
{
    switch (storageClass) {
    case AzureBlobStorageClass::Hot:
        return QStringLiteral("Hot");
    case AzureBlobStorageClass::Cool:
        return QStringLiteral("Cool");
    case AzureBlobStorageClass::Archive:
        return QStringLiteral("Archive");
    }
    return QStringLiteral("Unknown");
}

const WordTable<BackupStorageInfo::AmazonS3StorageClass>& BackupStorageInfo::amazonS3Words()
{
    static const WordTable<AmazonS3StorageClass> table{
        {"Standard", AmazonS3StorageClass::Standard},
        {"StandardIA", AmazonS3StorageClass::StandardIA},
        {"OneZoneIA", AmazonS3StorageClass::OneZoneIA},
        {"Glacier", AmazonS3StorageClass::Glacier},
        {"Intelligent", AmazonS3StorageClass::Intelligent},
        {"DeepArchive", AmazonS3StorageClass::DeepArchive},
        {"GlacierIR", AmazonS3StorageClass::GlacierIR}};
    return table;
}

const WordTable<BackupStorageInfo::AzureBlobStorageClass>& BackupStorageInfo::azureBlobWords()
{
    static const WordTable<AzureBlobStorageClass> table{
        {"hot", AzureBlobStorageClass::Hot},
        {"cool", AzureBlobStorageClass::Cool},
        {"archive", AzureBlobStorageClass::Archive}};
    return table;
}

} // namespace Orv::Info::Plan
