#include "SendUninstallNotification.h"

#include "CommandChannel.h"
#include "Console.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/ICommand.h"
#include "orvCommon/Communication/Manager.h"

#include <QEventLoop>
#include <QScopedPointer>

namespace Orv::CLI {

namespace Uninstall = Orv::Common::Communication::Commands::Format::System::UninstallNotification;
using Orv::Common::Communication::ICommand;

SendUninstallNotification::SendUninstallNotification(QObject* parent)
    : CommandBase(QStringLiteral("senduninstallnotification"),
                  QStringLiteral("Send uninstall notification"), parent, false)
{
}

int SendUninstallNotification::process(const QStringList& words)
{
    if (!words.isEmpty() && isHelpWord(words.first())) {
        helpMessageExt();
        return HelpShown;
    }
    QPointer<Orv::Common::Communication::Manager> manager =
        Orv::Common::Communication::Manager::instance();
    if (!manager) {
        print(QStringLiteral("Communication manager does not exist.\n"));
        return Unknown;
    }
    QScopedPointer<ICommand, QScopedPointerDeleteLater> command(
        manager->commandFactory(QLatin1String(Uninstall::Name)));
    if (!command) {
        print(QStringLiteral("Communication command does not registered.\n"));
        return Unknown;
    }
    QEventLoop loop;
    connect(command.data(), &ICommand::complite, &loop, &QEventLoop::quit);
    connect(command.data(), &ICommand::error, &loop, &QEventLoop::quit);
    connect(command.data(), &ICommand::timeout, &loop, &QEventLoop::quit);
    command->setRequest(CommandChannel::namedRequest({}));
    command->exec();
    loop.exec();
    emit finished(Show);
    return Started;
}

} // namespace Orv::CLI
