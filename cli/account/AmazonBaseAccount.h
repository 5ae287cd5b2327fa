#pragma once

#include "BaseAccount.h"

namespace Orv::CLI {

// Amazon S3 and the stores that speak its protocol at a fixed address
// ("amazons3", "wasabi", "amazons3chinese", "alibaba"): keys and a bucket.
class AmazonBaseAccount : public BaseAccount
{
    Q_OBJECT
public:
    AmazonBaseAccount(const QString& name, CommandType mode, QObject* parent = nullptr);

protected:
    int initParams() override;

    QCommandLineOption m_accessKeyOption;
    QCommandLineOption m_secretKeyOption;
    QCommandLineOption m_bucketOption;
};

} // namespace Orv::CLI
