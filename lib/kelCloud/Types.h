#pragma once

#include <QHash>
#include <QMap>
#include <QSet>
#include <QString>

namespace Kel::Cloud {

// Provider types. The integer values are what the service stores and reports
// in an account record's "Type"; never renumber them.
enum class Type : int
{
    Unknown = 0,
    FileSystem = 1,
    AmazonS3 = 2,
    AzureBlob = 3,
    OracleCloud = 4,
    Rackspace = 5,
    Openstack = 6,
    GoogleStorage = 7,
    SoftLayer = 8,
    HPCloud = 9,
    HPHelion = 10,
    S3Compatible = 11,
    Scality = 12,
    DreamObjects = 13,
    Cloudian = 14,
    ThinkOn = 15,
    Aruba = 16,
    Tiscali = 17,
    Seeweb = 18,
    CenturyLink = 19,
    AmazonS3Chinese = 20,
    Minio = 21,
    Dunkel = 22,
    Connectria = 23,
    HostEurope = 24,
    GreenQloud = 25,
    Constant = 26,
    Webzilla = 27,
    Verizon = 28,
    Wasabi = 29,
    AlibabaCloud = 30,
    BackBlaze = 31,
    Sftp = 33,
    WasabiUB = 34,
    WasabiUBStage = 35,
    WasabiStage = 36,
    AmazonS3UB = 37,
    TarnCloud = 38,
};

inline uint qHash(Type type, uint seed = 0)
{
    return ::qHash(static_cast<int>(type), seed);
}

// The type name of each provider type ("FileSystem", "AmazonS3", ...): what
// account configurations carry under Config::Type.
const QMap<Type, QString>& TypeName();
QString typeName(Type type);
// Exact match on the type name; Unknown when there is none.
Type typeFromName(const QString& name);
Type typeFromValue(int value);

// Types kept only so that existing accounts keep working; new accounts of
// these types are offered only when the settings ask for every type.
const QSet<Type>& DepricatedTypes();

} // namespace Kel::Cloud
