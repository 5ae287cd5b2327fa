#pragma once

#include "MinioAccount.h"

namespace Orv::CLI {

// Any store that speaks the S3 protocol, signed the old way or the new
// ("s3compatible").
class S3CompatibleAccount : public MinioAccount
{
    Q_OBJECT
public:
    S3CompatibleAccount(const QString& name, CommandType mode, QObject* parent = nullptr);

protected:
    int initParams() override;
};

} // namespace Orv::CLI
