#include "AccountList.h"

#include "CommandChannel.h"
#include "Console.h"
#include "orvCommon/Communication/Format.h"

#include <QFileInfo>
#include <QUuid>

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

void AccountList::warnAboutDamagedFiles(const QJsonArray& files)
{
    for (const QJsonValue& value : files) {
        const QString path =
            value[QLatin1String(GetConnection::Reply::DamagedFile)].toString().left(4096);
        QString text =
            QStringLiteral("Warning: the account file %1 was skipped: %2\n")
                .arg(path,
                     value[QLatin1String(GetConnection::Reply::DamagedReason)].toString().left(
                         4096));
        const QUuid id(QFileInfo(path).completeBaseName());
        if (!id.isNull())
            text += QStringLiteral("  Repair it, or remove it with: account delete --id %1 -c\n")
                        .arg(id.toString(QUuid::WithoutBraces));
        warn(text);
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
        warnAboutDamagedFiles(data.value(QLatin1String(GetConnection::Reply::Damaged)).toArray());
    } catch (const QString& message) {
        emit error(message);
        return;
    }
    emit finished();
}

} // namespace Orv::CLI
