#include "CommandAccountList.h"

#include "AccountList.h"
#include "AccountTypes.h"
#include "Console.h"
#include "orvCommon/Communication/Format.h"

#include <QJsonObject>
#include <QVector>

namespace Orv::CLI {

namespace Reply = Orv::Common::Communication::Commands::Format::Storage::GetConnection::Reply;

CommandAccountList::CommandAccountList(QObject* parent)
    : CommandBase(QStringLiteral("list"), QStringLiteral("list of existing storage accounts"),
                  parent)
{
}

int CommandAccountList::process(const QStringList& words)
{
    const int parsed = execNoArgs(words);
    if (parsed != Started)
        return parsed;
    auto* list = new AccountList(this);
    connect(list, &AccountList::finished, this, &CommandAccountList::onGetAccountListResult);
    connect(list, &AccountList::error, this, &CommandBase::error);
    list->exec();
    return Started;
}

void CommandAccountList::onGetAccountListResult()
{
    const auto* list = qobject_cast<AccountList*>(sender());
    // Records the service could not fill are left out, and do not widen the
    // name column either.
    QVector<QJsonObject> accounts;
    int width = 0;
    const QJsonArray all = list->accountList();
    for (const QJsonValue& value : all) {
        const QJsonObject account = value.toObject();
        if (account.isEmpty())
            continue;
        accounts.append(account);
        width = qMax(width, account.value(QLatin1String(Reply::DisplayName)).toString().size());
    }
    if (accounts.isEmpty()) {
        emit error(QStringLiteral("Account list is empty"));
        return;
    }
    QString text = QStringLiteral("Accounts list:\n");
    for (const QJsonObject& account : qAsConst(accounts)) {
        const QString name = account.value(QLatin1String(Reply::DisplayName)).toString();
        const auto type =
            Kel::Cloud::typeFromValue(account.value(QLatin1String(Reply::Type)).toInt());
        text += name + QString(width - name.size(), QLatin1Char(' ')) + QStringLiteral(" : ") +
                AccountTypes::displayName(type) + QLatin1Char('\t') +
                account.value(QLatin1String(Reply::ID)).toString() + QLatin1Char('\n');
    }
    print(text);
    emit finished(DontShow);
}

} // namespace Orv::CLI
