#include "kelCloud/AzureCloud.h"

#include <QStringList>

namespace Kel::Cloud {

const QList<AzureCloud>& AzureCloud::all()
{
    static const QList<AzureCloud> clouds{
        {QStringLiteral("Global"), QStringLiteral("blob.core.windows.net")},
        {QStringLiteral("China"), QStringLiteral("blob.core.chinacloudapi.cn")},
        {QStringLiteral("Government"), QStringLiteral("blob.core.usgovcloudapi.net")},
        {QStringLiteral("Custom"), QString()},
    };
    return clouds;
}

QStringList AzureCloud::names()
{
    QStringList names;
    for (const AzureCloud& cloud : all())
        names << cloud.name;
    return names;
}

const AzureCloud* AzureCloud::find(const QString& name)
{
    for (const AzureCloud& cloud : all())
        if (cloud.name == name)
            return &cloud;
    return nullptr;
}

} // namespace Kel::Cloud
