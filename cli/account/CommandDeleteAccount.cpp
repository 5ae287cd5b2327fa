#include "CommandDeleteAccount.h"

#include "DeleteAccount.h"

namespace Orv::CLI {

CommandDeleteAccount::CommandDeleteAccount(QObject* parent)
    : CommandAccountBase(QStringLiteral("delete"), QStringLiteral("delete storage account"),
                         QStringLiteral("Confirm remove account "),
                         QStringLiteral("Please confirm remove account: use -c.\n"), parent)
{
}

void CommandDeleteAccount::start()
{
    auto* deletion =
        byName() ? new DeleteAccount(m_name, this) : new DeleteAccount(QUuid(m_id), this);
    connect(deletion, &DeleteAccount::finished, this, [this] { emit finished(Show); });
    connect(deletion, &DeleteAccount::error, this, &CommandBase::error);
    deletion->exec();
}

} // namespace Orv::CLI
