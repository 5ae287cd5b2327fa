#include "kelCloud/Types.h"

namespace Kel::Cloud {

const QMap<Type, QString>& TypeName()
{
    static const QMap<Type, QString> names{
        {Type::FileSystem, QStringLiteral("FileSystem")},
        {Type::AmazonS3, QStringLiteral("AmazonS3")},
        {Type::AzureBlob, QStringLiteral("AzureBlob")},
        {Type::OracleCloud, QStringLiteral("OracleCloud")},
        {Type::Rackspace, QStringLiteral("Rackspace")},
        {Type::Openstack, QStringLiteral("Openstack")},
        {Type::GoogleStorage, QStringLiteral("GoogleStorage")},
        {Type::SoftLayer, QStringLiteral("SoftLayer")},
        {Type::HPCloud, QStringLiteral("HPCloud")},
        {Type::HPHelion, QStringLiteral("HPHelion")},
        {Type::S3Compatible, QStringLiteral("S3Compatible")},
        {Type::Scality, QStringLiteral("Scality")},
        {Type::DreamObjects, QStringLiteral("DreamObjects")},
        {Type::Cloudian, QStringLiteral("Cloudian")},
        {Type::ThinkOn, QStringLiteral("ThinkOn")},
        {Type::Aruba, QStringLiteral("Aruba")},
        {Type::Tiscali, QStringLiteral("Tiscali")},
        {Type::Seeweb, QStringLiteral("Seeweb")},
        {Type::CenturyLink, QStringLiteral("CenturyLink")},
        {Type::AmazonS3Chinese, QStringLiteral("AmazonS3Chinese")},
        {Type::Minio, QStringLiteral("Minio")},
        {Type::Dunkel, QStringLiteral("Dunkel")},
        {Type::Connectria, QStringLiteral("Connectria")},
        {Type::HostEurope, QStringLiteral("HostEurope")},
        {Type::GreenQloud, QStringLiteral("GreenQloud")},
        {Type::Constant, QStringLiteral("Constant")},
        {Type::Webzilla, QStringLiteral("Webzilla")},
        {Type::Verizon, QStringLiteral("Verizon")},
        {Type::Wasabi, QStringLiteral("Wasabi")},
        {Type::AlibabaCloud, QStringLiteral("AlibabaCloud")},
        {Type::BackBlaze, QStringLiteral("BackBlaze")},
        {Type::Sftp, QStringLiteral("Sftp")},
        {Type::WasabiUB, QStringLiteral("Wasabi (UB)")},
        {Type::WasabiUBStage, QStringLiteral("Wasabi (UB) Stage")},
        {Type::WasabiStage, QStringLiteral("Wasabi Stage")},
        {Type::AmazonS3UB, QStringLiteral("AmazonS3 (UB)")},
        {Type::TarnCloud, QStringLiteral("TARN_CLOUD")},
    };
    return names;
}

QString typeName(Type type)
{
    return TypeName().value(type);
}

Type typeFromName(const QString& name)
{
    static const QHash<QString, Type> types = [] {
        QHash<QString, Type> byName;
        const QMap<Type, QString>& names = TypeName();
        for (auto it = names.cbegin(); it != names.cend(); ++it)
            byName.insert(it.value(), it.key());
        return byName;
    }();
    return types.value(name, Type::Unknown);
}

Type typeFromValue(int value)
{
    const Type type = static_cast<Type>(value);
    return TypeName().contains(type) ? type : Type::Unknown;
}

const QSet<Type>& DepricatedTypes()
{
    // The providers of the OpenStack era, whose services are gone or moved to
    // other protocols, and the staging and special-build variants that were
    // never meant for new accounts. None of the types the command line can
    // create is among them.
    static const QSet<Type> types{
        Type::OracleCloud, Type::Rackspace,  Type::Openstack, Type::SoftLayer,
        Type::HPCloud,     Type::HPHelion,   Type::WasabiUB,  Type::WasabiUBStage,
        Type::WasabiStage, Type::AmazonS3UB,
    };
    return types;
}

} // namespace Kel::Cloud
