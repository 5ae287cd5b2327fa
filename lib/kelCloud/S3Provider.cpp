#include "kelCloud/S3Provider.h"

#include <QRegularExpression>

namespace Kel::Cloud {

using Info::AmazonS3Like::Signature;

bool S3Provider::serves(Type type)
{
    switch (type) {
    case Type::AmazonS3:
    case Type::AmazonS3UB:
    case Type::AmazonS3Chinese:
    case Type::Wasabi:
    case Type::WasabiUB:
    case Type::WasabiStage:
    case Type::WasabiUBStage:
    case Type::AlibabaCloud:
    case Type::Minio:
    case Type::S3Compatible:
    // Hosting partners whose stores speak S3 at an endpoint of their own.
    case Type::Scality:
    case Type::DreamObjects:
    case Type::Cloudian:
    case Type::ThinkOn:
    case Type::Aruba:
    case Type::Tiscali:
    case Type::Seeweb:
    case Type::CenturyLink:
    case Type::Dunkel:
    case Type::Connectria:
    case Type::HostEurope:
    case Type::GreenQloud:
    case Type::Constant:
    case Type::Webzilla:
    case Type::Verizon:
        return true;
    default:
        return false;
    }
}

S3Provider S3Provider::forType(Type type)
{
    S3Provider provider;
    switch (type) {
    case Type::AmazonS3:
    case Type::AmazonS3UB:
        provider.host = QStringLiteral("s3.amazonaws.com");
        provider.virtualHosted = true;
        break;
    case Type::AmazonS3Chinese:
        provider.host = QStringLiteral("s3.cn-north-1.amazonaws.com.cn");
        provider.region = QStringLiteral("cn-north-1");
        provider.virtualHosted = true;
        break;
    case Type::Wasabi:
    case Type::WasabiUB:
        provider.host = QStringLiteral("s3.wasabisys.com");
        provider.virtualHosted = true;
        break;
    case Type::AlibabaCloud:
        // Its S3 interface takes version 2 signatures and only
        // bucket-in-host addresses.
        provider.host = QStringLiteral("oss-cn-hangzhou.aliyuncs.com");
        provider.region = QStringLiteral("oss-cn-hangzhou");
        provider.signature = Signature::AWS2;
        provider.virtualHosted = true;
        provider.virtualHostedOnly = true;
        break;
    case Type::GoogleStorage:
        // Its interoperable XML API, reached with HMAC keys; "auto" is the
        // region it signs for.
        provider.host = QStringLiteral("storage.googleapis.com");
        provider.region = QStringLiteral("auto");
        provider.virtualHosted = true;
        break;
    case Type::Minio:
    case Type::WasabiStage:
    case Type::WasabiUBStage:
        break;
    default:
        // S3Compatible and the partners: what most such stores understand.
        provider.signature = Signature::AWS2;
        break;
    }
    return provider;
}

QString S3Provider::regionOfHost(const QString& host)
{
    static const QRegularExpression regional(QStringLiteral(
        R"(^(?:.+\.)?s3[.-]([a-z]{2}(?:-[a-z]+)+-\d+)\.(?:amazonaws\.com(?:\.cn)?|wasabisys\.com)$)"));
    static const QRegularExpression alibaba(
        QStringLiteral(R"(^(?:.+\.)?(oss-[a-z]+-[a-z0-9-]+?)(?:-internal)?\.aliyuncs\.com$)"));
    const QString lower = host.toLower();
    QRegularExpressionMatch match = regional.match(lower);
    if (match.hasMatch())
        return match.captured(1);
    match = alibaba.match(lower);
    return match.hasMatch() ? match.captured(1) : QString();
}

} // namespace Kel::Cloud
