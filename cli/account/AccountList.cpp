#include "AccountList.h"

#include "CommandChannel.h"
#include "orvCommon/Communication/Format.h"

namespace Orv::CLI {

namespace GetConnection = Orv::Common::Communication::Commands::Format::Storage::GetConnection;

bool AccountList::exec()
{
    try {
        CommandChannel::sendNamed(QLatin1String(GetConnection::Name), {}, this,
                                  &AccountList::onAccountListResult,
                                  QStringLiteral("Communication command don't registered"));
        return true;
    } catch (const QString& message) {
        deleteLater();
        emit error(message);
        return false;
    }
}

void AccountList::onAccountListResult()
{
    QScopedPointer<CommandChannel::ICommand, QScopedPointerDeleteLater> command(
        qobject_cast<CommandChannel::ICommand*>(sender()));
    deleteLater();
    try {
        const QJsonObject data = CommandChannel::namedReplyData(command.data());
        m_accounts = data.value(QLatin1String(GetConnection::Reply::Key)).toArray();
    } catch (const QString& message) {
        emit error(message);
        return;
    }
    emit finished();
}

} // namespace Orv::CLI
