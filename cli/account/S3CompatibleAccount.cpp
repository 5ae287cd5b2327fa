#include "S3CompatibleAccount.h"

#include "kelCloud/Config.h"
#include "kelCloud/Signature.h"

namespace Orv::CLI {

using Signature = Kel::Cloud::Info::AmazonS3Like::Signature;

S3CompatibleAccount::S3CompatibleAccount(const QString& name, CommandType mode, QObject* parent)
    : MinioAccount(name, mode, parent)
{
    addOption(m_signatureOption, true);
}

int S3CompatibleAccount::initParams()
{
    const int result = MinioAccount::initParams();
    if (result != Continue)
        return result;
    // The value was matched against the table before the account was chosen.
    const QString key = QLatin1String(Kel::Cloud::Config::SignatureVersion);
    if (m_parser.isSet(m_signatureOption))
        m_config.insert(key, QString::number(Signature::SignatureVersionValue().value(
                                 m_parser.value(m_signatureOption).trimmed())));
    else if (isAdd() || !m_config.contains(key))
        m_config.insert(key, QString::number(Signature::AWS2));
    return Continue;
}

} // namespace Orv::CLI
