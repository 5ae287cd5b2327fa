#include "AccountFactory.h"

#include "AmazonBaseAccount.h"
#include "AzureBlobAccount.h"
#include "BackBlazeAccount.h"
#include "FileSystemAccount.h"
#include "GoogleAccount.h"
#include "MinioAccount.h"
#include "S3CompatibleAccount.h"
#include "SFTPAccount.h"

namespace Orv::CLI {

using Kel::Cloud::Type;

QSharedPointer<BaseAccount> AccountFactory::create(const QString& name, Type type, CommandType mode)
{
    switch (type) {
    case Type::FileSystem:
        return QSharedPointer<FileSystemAccount>::create(name, mode);
    case Type::AmazonS3:
    case Type::AmazonS3Chinese:
    case Type::Wasabi:
    case Type::AlibabaCloud:
        return QSharedPointer<AmazonBaseAccount>::create(name, mode);
    case Type::AzureBlob:
        return QSharedPointer<AzureBlobAccount>::create(name, mode);
    case Type::GoogleStorage:
        return QSharedPointer<GoogleAccount>::create(name, mode);
    case Type::S3Compatible:
        return QSharedPointer<S3CompatibleAccount>::create(name, mode);
    case Type::Minio:
        return QSharedPointer<MinioAccount>::create(name, mode);
    case Type::BackBlaze:
        return QSharedPointer<BackBlazeAccount>::create(name, mode);
    case Type::Sftp:
        return QSharedPointer<SFTPAccount>::create(name, mode);
    default:
        return QSharedPointer<BaseAccount>::create(name, mode);
    }
}

} // namespace Orv::CLI
