#include "CommandInfoAccount.h"

#include "AccountList.h"
#include "Console.h"
#include "Sync.h"
#include "kelCloud/Config.h"
#include "kelCloud/Types.h"
#include "orvCommon/Communication/Format.h"

#include <QJsonArray>

namespace Orv::CLI {

namespace GetConnection = Orv::Common::Communication::Commands::Format::Storage::GetConnection;
namespace Reply = GetConnection::Reply;

CommandInfoAccount::CommandInfoAccount(QObject* parent)
    : CommandAccountBase(QStringLiteral("info"), QStringLiteral("get storage account details"),
                         QString(), QString(), parent)
{
}

void CommandInfoAccount::start()
{
    auto* list = new AccountList(this);
    connect(list, &AccountList::finished, this, &CommandInfoAccount::onInfoAccountResult);
    connect(list, &AccountList::error, this, &CommandBase::error);
    list->exec();
}

void CommandInfoAccount::onInfoAccountResult()
{
    const QJsonArray accounts = qobject_cast<AccountList*>(sender())->accountList();
    for (const QJsonValue& value : qAsConst(accounts)) {
        const QJsonObject account = value.toObject();
        if (!Sync::matches(account, byName() ? m_name : QString(), byName() ? QString() : m_id))
            continue;
        const QJsonObject details = account.value(QLatin1String(Reply::DetailParams)).toObject();
        QString path = details.value(QLatin1String(Kel::Cloud::Config::Path)).toString();
        if (path.isEmpty())
            path = account.value(QLatin1String(Reply::Path)).toString();
        const auto type =
            Kel::Cloud::typeFromValue(account.value(QLatin1String(Reply::Type)).toInt());
        const QList<QPair<const char*, QString>> lines{
            {Reply::DisplayName, account.value(QLatin1String(Reply::DisplayName)).toString()},
            {Reply::ID, account.value(QLatin1String(Reply::ID)).toString()},
            {Reply::Prefix, account.value(QLatin1String(Reply::Prefix)).toString()},
            {Reply::Type, Kel::Cloud::typeName(type)},
            {Reply::Path, path}};
        QString text = QStringLiteral("Account info:\n");
        for (const auto& line : lines)
            text += QLatin1Char('\t') + QLatin1String(line.first) + QStringLiteral(": ") +
                    line.second + QLatin1Char('\n');
        print(text);
        emit finished(DontShow);
        return;
    }
    emit error(QStringLiteral("Account not found \n"));
}

} // namespace Orv::CLI
