#include "CommandSyncAccount.h"

#include "CommandChannel.h"
#include "Sync.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/Registry.h"

namespace Orv::CLI {

namespace Format = Orv::Common::Communication::Commands::Format;
namespace Synchronize = Format::Storage::SynchronizeRepository;
namespace Reply = Format::Storage::GetConnection::Reply;

CommandSyncAccount::CommandSyncAccount(QObject* parent)
    : CommandAccountBase(QStringLiteral("sync"), QStringLiteral("sync storage account"),
                         QStringLiteral("Confirm sync account "),
                         QStringLiteral("Please confirm sync account: use -c.\n"), parent)
{
}

void CommandSyncAccount::start()
{
    try {
        if (!Orv::Common::Communication::Manager::instance())
            throw CommandChannel::kManagerMissing;
        const QString notRegistered = QStringLiteral("Communication command don't registered.\n");
        if (!Orv::Common::Communication::Registry::isNamedCommand(QLatin1String(Synchronize::Name)))
            throw notRegistered;
        const QJsonObject account = Sync::getConnectionByNameOrId(nameOrId());
        if (account.isEmpty())
            throw QStringLiteral("Error: specified account doesn't exist.\n");
        if (account.value(QLatin1String(Reply::SyncStatus)).toBool())
            throw QStringLiteral("Error: sync is started.\n");
        CommandChannel::sendNamedStatus(
            QLatin1String(Synchronize::Name),
            {{QLatin1String(Synchronize::Request::Id), account.value(QLatin1String(Reply::ID))}},
            this, [this] { emit finished(Show); },
            [this](const QString& message) { emit error(message); }, notRegistered);
    } catch (const QString& message) {
        emit error(message);
    }
}

} // namespace Orv::CLI
