#include "ApplicationStandalone.h"
#include "ApplicationTarn.h"
#include "kelCore/LogManager.h"
#include "orvCommon/AppPath.h"
#include "orvCommon/Installation.h"
#include "orvCommon/ServiceEnvironment.h"

#include <QCoreApplication>
#include <QTextCodec>
#include <QThreadPool>

int main(int argc, char* argv[])
{
    qRegisterMetaType<Orv::CLI::CommandBase::ShowSuccess>("Orv::CLI::CommandBase::ShowSuccess");
    auto* core = new QCoreApplication(argc, argv);
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    Orv::Service::init_environment();

    Kel::LogManager* log = Kel::LogManager::instance();
    log->setVerbose(false);
    log->setAppPrefix(QStringLiteral("CommandLineV2"));
    log->setOutToFile(true);
    log->setOutToStream(false);
    log->setDebug(SHARED::defines::common::isDebug());
    log->setRawOutput(false);
    log->setCrashHandler(false);
    log->setLogPath(Orv::Defines::AppPath::to().logs());
    log->setLogLevel(SHARED::defines::common::logLevel());
    log->setRotateDays(SHARED::defines::common::logRotateDays());
    log->init();

    QSharedPointer<Orv::CLI::Application> application;
    if (SHARED::defines::common::is_standalone())
        application = QSharedPointer<Orv::CLI::ApplicationStandalone>::create(
            QCoreApplication::arguments());
    else
        application =
            QSharedPointer<Orv::CLI::ApplicationTarn>::create(QCoreApplication::arguments());
    application->init();
    QObject::connect(application.data(), &Orv::CLI::Application::finished, core,
                     &QCoreApplication::quit, Qt::QueuedConnection);
    application->start();
    QCoreApplication::exec();

    QThreadPool::globalInstance()->waitForDone(1000);
    const int result = application->result();
    application.reset();
    delete core;
    return result;
}
