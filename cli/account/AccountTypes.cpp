#include "AccountTypes.h"

namespace Orv::CLI {

using Kel::Cloud::Type;

namespace {

struct Row
{
    const char* name;
    Type type;
    const char* displayName;
};

// "AmazonS3 / Glacier" goes with "amazons3chinese" and "AmazonS3" with
// "amazons3": the pairing is meant.
const Row kRows[] = {
    {"amazons3", Type::AmazonS3, "AmazonS3"},
    {"wasabi", Type::Wasabi, "Wasabi"},
    {"amazons3chinese", Type::AmazonS3Chinese, "AmazonS3 / Glacier"},
    {"s3compatible", Type::S3Compatible, "S3 Compatible"},
    {"minio", Type::Minio, "Minio"},
    {"alibaba", Type::AlibabaCloud, "Alibaba"},
    {"azure", Type::AzureBlob, "Azure"},
    {"googlestorage", Type::GoogleStorage, "Google Storage"},
    {"backblaze", Type::BackBlaze, "Backblaze B2"},
    {"filesystem", Type::FileSystem, "File System"},
    {"sftp", Type::Sftp, "Sftp"},
};

template <typename Key, typename Value, typename KeyOf, typename ValueOf>
QMap<Key, Value> table(KeyOf keyOf, ValueOf valueOf)
{
    QMap<Key, Value> map;
    for (const Row& row : kRows)
        map.insert(keyOf(row), valueOf(row));
    return map;
}

QString nameOf(const Row& row)
{
    return QLatin1String(row.name);
}

Type typeOf(const Row& row)
{
    return row.type;
}

QString displayNameOf(const Row& row)
{
    return QString::fromUtf8(row.displayName);
}

} // namespace

const QMap<QString, Type>& AccountTypes::NameToType()
{
    static const auto map = table<QString, Type>(nameOf, typeOf);
    return map;
}

const QMap<Type, QString>& AccountTypes::TypeToName()
{
    static const auto map = table<Type, QString>(typeOf, nameOf);
    return map;
}

const QMap<QString, QString>& AccountTypes::NameToExtendedName()
{
    static const auto map = table<QString, QString>(nameOf, displayNameOf);
    return map;
}

const QMap<Type, QString>& AccountTypes::TypeToExtendedName()
{
    static const auto map = table<Type, QString>(typeOf, displayNameOf);
    return map;
}

QString AccountTypes::displayName(Type type)
{
    const QString shown = TypeToExtendedName().value(type);
    return shown.isEmpty() ? Kel::Cloud::typeName(type) : shown;
}

} // namespace Orv::CLI
