// One PlanGetList exchange with the service through the client library, from
// process start to exit: what a command that asks the service pays on top of
// starting up. With --no-exchange it starts, runs its event loop once and
// exits, which is the baseline to subtract.
//
// Talks to the instance named by ORV_ROOT. Exits 0 when the service answered,
// 1 otherwise.

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/ICommand.h"
#include "orvCommon/Communication/Manager.h"

#include <QCoreApplication>
#include <QJsonObject>
#include <QTimer>
#include <cstdio>

namespace Communication = Orv::Common::Communication;
namespace Format = Communication::Commands::Format;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const bool exchange = !app.arguments().contains(QStringLiteral("--no-exchange"));

    QPointer<Communication::Manager> manager = Communication::Manager::instance();
    manager->initConnectionAgent(6, {});
    if (!exchange) {
        QTimer::singleShot(0, &app, &QCoreApplication::quit);
        return app.exec();
    }

    Communication::ICommand* command =
        manager->commandFactory(QLatin1String(Format::Plan::GetList::Name));
    command->setRequest(QJsonDocument(
        QJsonObject{{QLatin1String(Format::Header::Params),
                     QJsonObject{{QLatin1String(Format::Plan::GetList::Request::Profile),
                                  qEnvironmentVariable("USER")}}}}));
    const auto finish = [&app, command] {
        const bool ok = command->isComplite() && !command->isReplyError();
        if (!ok)
            std::fprintf(stderr, "roundtrip: %s\n",
                         qPrintable(command->isComplite() ? command->replyErrorString()
                                                          : command->errorString()));
        app.exit(ok ? 0 : 1);
    };
    QObject::connect(command, &Communication::ICommand::complite, &app, finish);
    QObject::connect(command, &Communication::ICommand::error, &app, finish);
    QObject::connect(command, &Communication::ICommand::timeout, &app, finish);
    command->exec();
    const int status = app.exec();
    delete command;
    return status;
}
