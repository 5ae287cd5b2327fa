#include "kelCloud/Signature.h"

namespace Kel::Cloud::Info::AmazonS3Like {

const QMap<Signature::Version, QString>& Signature::SignatureVersionName()
{
    static const QMap<Version, QString> names{
        {AWS2, QStringLiteral("AWS2")},
        {AWS4, QStringLiteral("AWS4")},
    };
    return names;
}

const QMap<QString, Signature::Version>& Signature::SignatureVersionValue()
{
    static const QMap<QString, Version> values{
        {QStringLiteral("AWS2"), AWS2},
        {QStringLiteral("AWS4"), AWS4},
    };
    return values;
}

} // namespace Kel::Cloud::Info::AmazonS3Like
