#include "kelCore/LogManager.h"
#include "kelCore/Version.h"
#include "orvCommon/AppPath.h"
#include "orvCommon/Installation.h"
#include "orvCommon/ServiceEnvironment.h"
#include "service/Service.h"
#include "service/SettingsWatcher.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QLoggingCategory>
#include <csignal>
#include <cstdio>

namespace {

void setUpLogging()
{
    namespace Common = SHARED::defines::common;
    Kel::LogManager* log = Kel::LogManager::instance();
    log->setAppPrefix(QStringLiteral("orvd"));
    log->setDebug(Common::isDebug());
    log->setOutToStream(false);
    // Level, rotation and folder come from the settings store, and follow it.
    Orv::Service::SettingsWatcher::applyLogging();
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("orvd"));
    QCoreApplication::setApplicationVersion(Kel::Core::Version::string());

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("The backup service. It runs in the foreground until SIGTERM or SIGINT."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.process(app);

    Orv::Service::init_environment();
    setUpLogging();
    // A client that goes away while we write to it must not end the service.
    ::signal(SIGPIPE, SIG_IGN);

    Orv::Service::SettingsWatcher settings;
    settings.start();
    Orv::Service::Service service;
    QString error;
    if (!service.start(&error)) {
        qCritical().noquote() << "Cannot start:" << error;
        std::fprintf(stderr, "orvd: %s\n", qPrintable(error));
        return 1;
    }
    return QCoreApplication::exec();
}
