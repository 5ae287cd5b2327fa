#include "DeleteAccount.h"

#include "CommandChannel.h"
#include "Sync.h"
#include "kelCloud/Types.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/Registry.h"
#include "orvCommon/Installation.h"

namespace Orv::CLI {

namespace Format = Orv::Common::Communication::Commands::Format;
namespace Delete = Format::Storage::DeleteFileSystem;
namespace Reply = Format::Storage::GetConnection::Reply;

DeleteAccount::DeleteAccount(const QString& nameOrId, QObject* parent)
    : QObject(parent), m_nameOrId(nameOrId.trimmed())
{
}

DeleteAccount::DeleteAccount(const QUuid& id, QObject* parent)
    : QObject(parent), m_nameOrId(id.toString())
{
}

void DeleteAccount::exec()
{
    try {
        if (!Orv::Common::Communication::Manager::instance())
            throw QStringLiteral("Communication manager is 0x00.\n");
        const QString notRegistered = QStringLiteral("Communication command don't registered.\n");
        if (!Orv::Common::Communication::Registry::isNamedCommand(QLatin1String(Delete::Name)))
            throw notRegistered;
        QJsonObject account = Sync::getConnectionByNameOrId(m_nameOrId);
        // An ID the list does not hold may name a damaged account file,
        // which only the service can find: it answers the same refusal for
        // an ID that names nothing.
        if (account.isEmpty() && !SHARED::defines::common::is_tarn() && !QUuid(m_nameOrId).isNull())
            account.insert(QLatin1String(Reply::ID), QUuid(m_nameOrId).toString());
        if (account.isEmpty())
            throw QStringLiteral("Error: specified account doesn't exist.\n");
        if (SHARED::defines::common::is_tarn() &&
            account.value(QLatin1String(Reply::Type)).toInt() !=
                static_cast<int>(Kel::Cloud::Type::FileSystem))
            throw QStringLiteral("This storage destination cannot be deleted from the agent, "
                                 "please contact your service provider.\n");
        const QJsonObject params{
            {QLatin1String(Delete::Request::ID), account.value(QLatin1String(Reply::ID))},
            {QLatin1String(Delete::Request::Profile), QString::fromLocal8Bit(qgetenv("USER"))}};
        CommandChannel::sendNamedStatus(
            QLatin1String(Delete::Name), params, this,
            [this] {
                deleteLater();
                emit finished();
            },
            [this](const QString& message) {
                deleteLater();
                emit error(message);
            },
            notRegistered);
    } catch (const QString& message) {
        deleteLater();
        emit error(message);
    }
}

} // namespace Orv::CLI
