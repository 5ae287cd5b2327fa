#pragma once

#include "kelCloud/Signature.h"
#include "kelCloud/Types.h"

#include <QString>

namespace Kel::Cloud {

// What an S3-like provider is when the configuration says no more than its
// type: its service host, region, signature version and addressing.
struct S3Provider
{
    // Empty when the provider has no public service: the configuration must
    // name the endpoint.
    QString host;
    QString region = QStringLiteral("us-east-1");
    Info::AmazonS3Like::Signature::Version signature = Info::AmazonS3Like::Signature::AWS4;
    // Buckets addressed as "bucket.host" on the provider's own host.
    bool virtualHosted = false;
    // The provider accepts no other addressing, on any endpoint.
    bool virtualHostedOnly = false;

    // Whether the type is served by the S3 backend.
    static bool serves(Type type);
    static S3Provider forType(Type type);
    // The region a provider's regional host names ("s3.eu-west-1.amazonaws.com",
    // "s3.eu-central-1.wasabisys.com", "oss-cn-beijing.aliyuncs.com"); empty
    // for other hosts.
    static QString regionOfHost(const QString& host);
};

} // namespace Kel::Cloud
