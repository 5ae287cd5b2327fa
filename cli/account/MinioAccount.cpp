#include "MinioAccount.h"

#include "kelCloud/Config.h"

namespace Orv::CLI {

MinioAccount::MinioAccount(const QString& name, CommandType mode, QObject* parent)
    : AmazonBaseAccount(name, mode, parent)
{
    addOption(m_endpointOption, true);
}

int MinioAccount::initParams()
{
    const int result = AmazonBaseAccount::initParams();
    if (result != Continue)
        return result;
    // Mandatory when adding; the base has checked that.
    readOption(m_endpointOption, Kel::Cloud::Config::Endpoint, false);
    return Continue;
}

} // namespace Orv::CLI
