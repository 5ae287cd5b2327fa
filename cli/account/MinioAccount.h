#pragma once

#include "AmazonBaseAccount.h"

namespace Orv::CLI {

// An S3-like store at an address of the administrator's ("minio").
class MinioAccount : public AmazonBaseAccount
{
    Q_OBJECT
public:
    MinioAccount(const QString& name, CommandType mode, QObject* parent = nullptr);

protected:
    int initParams() override;
};

} // namespace Orv::CLI
