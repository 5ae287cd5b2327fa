#pragma once

#include "orvInfo/Plan/StorageInfo.h"
#include "orvInfo/Plan/WordTable.h"

#include <QString>

namespace Orv::Info::Plan {

// Where a backup plan's data sits within its storage (Backup::StorageInfo):
// the Amazon S3 storage class and server-side encryption, the Azure Blob
// access tier. Amazon Standard, Azure hot and no SSE by default; each account
// type reads only its own fields.
class BackupStorageInfo : public StorageInfo
{
public:
    enum class AmazonS3StorageClass
    {
        Standard = 0,
        StandardIA = 1,
        OneZoneIA = 2,
        Glacier = 3,
        Intelligent = 4,
        DeepArchive = 5,
        GlacierIR = 6,
    };
    enum class AzureBlobStorageClass
    {
        Hot = 0,
        Cool = 1,
        Archive = 2,
    };

    AmazonS3StorageClass storageClassAmazonS3() const { return m_amazon; }
    void setStorageClassAmazonS3(AmazonS3StorageClass storageClass) { m_amazon = storageClass; }
    AzureBlobStorageClass storageClassAzureBlob() const { return m_azure; }
    void setStorageClassAzureBlob(AzureBlobStorageClass storageClass) { m_azure = storageClass; }
    bool useSSE() const { return m_useSSE; }
    void setUseSSE(bool use) { m_useSSE = use; }

    // Display texts ("Standard-IA", "Glacier Deep Archive", "Hot", ...).
    static QString AmazonS3StorageClass2String(AmazonS3StorageClass storageClass);
    static QString AzureBlobStorageClass2String(AzureBlobStorageClass storageClass);
    // "Standard", "StandardIA", "OneZoneIA", "Glacier", "Intelligent",
    // "DeepArchive", "GlacierIR".
    static const WordTable<AmazonS3StorageClass>& amazonS3Words();
    // "hot", "cool", "archive".
    static const WordTable<AzureBlobStorageClass>& azureBlobWords();

private:
    AmazonS3StorageClass m_amazon = AmazonS3StorageClass::Standard;
    AzureBlobStorageClass m_azure = AzureBlobStorageClass::Hot;
    bool m_useSSE = false;
};

} // namespace Orv::Info::Plan
