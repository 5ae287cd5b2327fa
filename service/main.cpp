#include "kelCore/LogManager.h"
#include "kelCore/Version.h"
#include "orvCommon/AppPath.h"
#include "orvCommon/Installation.h"
#include "orvCommon/ServiceEnvironment.h"
#include "service/Service.h"
#include "service/SettingsWatcher.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
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
    Orv::Service::Service::applyLogging();
}

// The help names the places the service uses as this environment gives them:
// the system locations, or the instance under ORV_ROOT.
QString description()
{
    const auto& paths = Orv::Defines::AppPath::to();
    const QString where = paths.root().isEmpty()
                              ? QStringLiteral("Here ORV_ROOT is not set:")
                              : QStringLiteral("Here ORV_ROOT=%1:").arg(paths.root());
    return QStringLiteral(
               "The backup service. It runs in the foreground until SIGTERM or SIGINT; SIGHUP\n"
               "reads the settings again and reopens the log file. Under systemd it reports\n"
               "when it is ready (Type=notify).\n\n"
               "Without ORV_ROOT in the environment it uses the system locations; with\n"
               "ORV_ROOT=<dir>, the folders config, logs, data and run of <dir> hold a whole\n"
               "instance. %1\n"
               "  configuration  %2\n"
               "  data           %3\n"
               "  log file       %4\n"
               "  socket         %5\n"
               "  pid file       %6")
        .arg(where, paths.config(), paths.data(),
             QDir(paths.logs()).filePath(QStringLiteral("orvd.log")), paths.serviceSocket(),
             paths.servicePidFile());
}

} // namespace

int main(int argc, char** argv)
{
    // Until the service takes it over, a HUP (a reload racing with the start)
    // must not end the process; the settings read next are fresh anyway.
    ::signal(SIGHUP, SIG_IGN);
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("orvd"));
    QCoreApplication::setApplicationVersion(Kel::Core::Version::string());

    QCommandLineParser parser;
    parser.setApplicationDescription(description());
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
