#include "Application.h"

#include "CommandGroupBase.h"
#include "Console.h"
#include "UnixSignalHandler.h"
#include "orvCommon/Communication/Manager.h"
#include "orvCommon/Database.h"
#include "orvCommon/Rebranding.h"
#include "orvCommon/ServiceEnvironment.h"

#include <QLoggingCategory>
#include <QThreadPool>
#include <QTimer>

#include <csignal>

Q_LOGGING_CATEGORY(lcApp, "CommandLineV2")

namespace Orv::CLI {

namespace {

constexpr int kDispatchDelayMs = 100;
constexpr int kAgentKindCommandLine = 6;

bool installHandler(int signalNumber, void (*handler)(int))
{
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    return ::sigaction(signalNumber, &action, nullptr) == 0;
}

} // namespace

Application::Application(const QStringList& arguments, QObject* parent)
    : QObject(parent), m_arguments(arguments)
{
    if (!m_arguments.isEmpty())
        m_arguments.removeFirst();
    m_signalHandler = new UnixSignalHandler();
    connect(m_signalHandler, &UnixSignalHandler::sigInt, this, &Application::finished);
    connect(this, &Application::waitComplete, &m_waitLoop, &QEventLoop::quit);
}

Application::~Application()
{
    delete m_signalHandler;
}

int Application::setupUnixSignalHandlers()
{
    if (!installHandler(SIGHUP, UnixSignalHandler::hupSignalHandler))
        return 1;
    if (!installHandler(SIGTERM, UnixSignalHandler::termSignalHandler))
        return 2;
    if (!installHandler(SIGINT, UnixSignalHandler::interruptSignalHandler))
        return 3;
    return 0;
}

void Application::init()
{
    setupUnixSignalHandlers();
    Orv::Service::init_proxy();
    if (!Orv::SQL::Database::init())
        qCCritical(lcApp) << "Error on init database connection";
    QThreadPool::globalInstance()->setMaxThreadCount(10);
    if (QPointer<Orv::Common::Communication::Manager> manager =
            Orv::Common::Communication::Manager::instance())
        manager->initConnectionAgent(kAgentKindCommandLine, QJsonObject());
}

void Application::start()
{
    QTimer::singleShot(kDispatchDelayMs, this, &Application::onStarted);
}

QString Application::welcomeString() const
{
    return Orv::Defines::Rebranding::instance()
               ->value(RebrandingKeys::General::ProductName)
               .toString() +
           QStringLiteral(" Command Line Interface started\n");
}

void Application::setRootGroup(QSharedPointer<CommandGroupBase> root)
{
    m_rootGroup = std::move(root);
    connect(m_rootGroup.data(), &CommandBase::finished, this, &Application::onCommandFinished);
    connect(m_rootGroup.data(), &CommandBase::error, this, &Application::onCommandError);
}

void Application::checkAndProcess()
{
    if (m_arguments.isEmpty() ||
        (m_arguments.size() == 1 && m_arguments.first() == CommandBase::Help)) {
        m_rootGroup->subitemsHelp(m_rootGroup);
        print(QStringLiteral("To see the help info about any command input:\n"));
        print(QStringLiteral("orvV2 <command> -h(--help)"));
        print(QStringLiteral("\n"));
        emit finished();
        return;
    }

    const int code = m_rootGroup->process(m_arguments);
    qCInfo(lcApp).noquote() << "Command:" << m_rootGroup->logInfo().join(QLatin1Char(' '));

    if (code == CommandBase::Started)
        return;
    if (code == CommandBase::Unknown) {
        print(QStringLiteral("\nUnknown command.\n"));
        print(QStringLiteral("\n"));
    } else {
        print(QStringLiteral("\n"));
    }
    emit finished();
}

void Application::onCommandFinished(CommandBase::ShowSuccess show)
{
    m_result = 0;
    if (show == CommandBase::Show)
        print(QStringLiteral("\nSuccess.\n"));
    emit finished();
}

void Application::onCommandError(const QString& message)
{
    m_result = -1;
    print(message + QStringLiteral("\n"));
    emit finished();
}

} // namespace Orv::CLI
