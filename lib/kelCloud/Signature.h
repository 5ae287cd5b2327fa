#pragma once

#include <QMap>
#include <QString>

namespace Kel::Cloud::Info::AmazonS3Like {

// How requests to an S3-like store are signed. The values are what account
// configurations carry under Config::SignatureVersion.
class Signature
{
public:
    enum Version
    {
        AWS2 = 0,
        AWS4 = 1,
    };

    // Value to text: "AWS2", "AWS4".
    static const QMap<Version, QString>& SignatureVersionName();
    // Text to value; the match is exact and case-sensitive.
    static const QMap<QString, Version>& SignatureVersionValue();
};

} // namespace Kel::Cloud::Info::AmazonS3Like
