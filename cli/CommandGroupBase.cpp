#include "CommandGroupBase.h"

#include "Console.h"
#include "account/AccountFactory.h"
#include "account/AccountTypes.h"
#include "orvCommon/DefaultSettings.h"

namespace Orv::CLI {

namespace {

// Groups that list as one line, like a command, without their children.
bool isCollapsedGroup(const QString& name)
{
    return name == QLatin1String("get") || name == QLatin1String("set") ||
           name == QLatin1String("edit") || name == QLatin1String("add");
}

} // namespace

CommandGroupBase::CommandGroupBase(const QString& name, const QString& description,
                                   QObject* parent, bool viewItemsHelp)
    : CommandBase(name, description, parent, viewItemsHelp)
{
}

void CommandGroupBase::addSubItem(QSharedPointer<CommandBase> item)
{
    if (!item)
        return;
    m_subItems.insert(item->name(), item);
    connect(item.data(), &CommandBase::finished, this, &CommandGroupBase::onCommandFinished,
            Qt::QueuedConnection);
    connect(item.data(), &CommandBase::error, this, &CommandGroupBase::onCommandError);
}

QString CommandGroupBase::help() const
{
    return QString();
}

void CommandGroupBase::printListing() const
{
    print(help());
    for (const QSharedPointer<CommandBase>& item : m_subItems)
        subitemsHelp(item);
    print(QStringLiteral("\n"));
}

int CommandGroupBase::process(const QStringList& words)
{
    if (words.isEmpty()) {
        printListing();
        return HelpShownNoWords;
    }
    const QString& first = words.first();
    if (isHelpWord(first)) {
        printListing();
        return HelpShown;
    }
    const QSharedPointer<CommandBase> item = m_subItems.value(first);
    if (!item)
        return Unknown;
    m_logInfo.append(first);
    const int code = item->process(words.mid(1));
    m_logInfo.append(item->logInfo());
    return code;
}

void CommandGroupBase::subitemsHelp(const QSharedPointer<CommandBase>& item) const
{
    const bool listed = item->viewItemsHelp();
    const QMap<QString, QSharedPointer<CommandBase>> children = item->subItems();
    if (children.isEmpty() || !listed) {
        if (listed)
            print(item->help() + QStringLiteral("\n"));
        return;
    }
    const QString name = item->name();
    if (isCollapsedGroup(name)) {
        const QString description = item->helpMessage();
        print(QStringLiteral("\t") +
              (description.isEmpty() ? name : listingLine(name, description)));
    } else if (!name.isEmpty()) {
        print(name + QStringLiteral(" <command> - ") + item->helpMessage() +
              QStringLiteral(": \n"));
    }
    if (!isCollapsedGroup(name))
        for (const QSharedPointer<CommandBase>& child : children)
            subitemsHelp(child);
    print(QStringLiteral("\n"));
}

void CommandGroupBase::accountCreateGroup(CommandType mode, bool allAccountTypes)
{
    const bool showAll =
        allAccountTypes &&
        Orv::DefaultSettings::instance()->getShowAllAccounts().toLower() == QLatin1String("true");
    const QMap<QString, Kel::Cloud::Type>& types = AccountTypes::NameToType();
    for (auto it = types.cbegin(); it != types.cend(); ++it) {
        const bool offered =
            it.value() == Kel::Cloud::Type::FileSystem ||
            (Kel::Cloud::DepricatedTypes().contains(it.value()) ? showAll : allAccountTypes);
        if (offered)
            addSubItem(AccountFactory::create(it.key(), it.value(), mode));
    }
}

void CommandGroupBase::onCommandFinished(CommandBase::ShowSuccess show)
{
    emit finished(show);
}

void CommandGroupBase::onCommandError(const QString& message)
{
    emit error(message);
}

} // namespace Orv::CLI
