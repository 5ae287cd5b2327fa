#include "Application.h"

#include "CommandGroupBase.h"
#include "Console.h"
#include "UnixSignalHandler.h"
#include "account/AccountList.h"
#include "account/AccountTypes.h"
#include "account/Sync.h"
#include "maintenance/Ssl.h"
#include "orvCommon/Communication/Format.h"
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
    // Pooled threads end as soon as they are idle. Storage checks run on them
    // and leave TLS state behind; a thread still tearing that down while the
    // process exits looks like a leak and races with the library's clean-up.
    QThreadPool::globalInstance()->setExpiryTimeout(0);
    if (QPointer<Orv::Common::Communication::Manager> manager =
            Orv::Common::Communication::Manager::instance())
        manager->initConnectionAgent(kAgentKindCommandLine, QJsonObject());
    Ssl::init();
    Ssl::updateSslCertificateCache();
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

    if (m_arguments.contains(CommandBase::Account) && m_arguments.contains(CommandBase::Edit) &&
        !prepareAccountEdit())
        return;

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

bool Application::prepareAccountEdit()
{
    m_editedAccount.clear();
    for (int i = 0; i + 1 < m_arguments.size() && m_editedAccount.isNull(); ++i) {
        const QString& word = m_arguments.at(i);
        if (word == QLatin1String("--name") || word == QLatin1String("-n") ||
            word == QLatin1String("--id"))
            m_editedAccount = m_arguments.at(i + 1);
    }
    // Without a name there is nothing to look up: the edit group shows its
    // help or its usage message.
    if (m_editedAccount.isNull())
        return true;

    auto* list = new AccountList(this);
    connect(list, &AccountList::finished, this, &Application::onGetAccountListResult);
    connect(list, &AccountList::error, this, [this](const QString& message) {
        m_editPreparationError = message + QStringLiteral("\n");
        m_waitDone = true;
        emit waitComplete();
    });
    m_waitDone = false;
    m_editPreparationError.clear();
    if (list->exec() && !m_waitDone)
        m_waitLoop.exec();
    // Interrupted while waiting: the run is ending already.
    if (!m_waitDone)
        return false;
    if (m_editPreparationError.isEmpty())
        return true;
    print(m_editPreparationError);
    m_result = -1;
    emit finished();
    return false;
}

void Application::onGetAccountListResult()
{
    const QJsonArray accounts = qobject_cast<AccountList*>(sender())->accountList();
    QString typeName;
    for (const QJsonValue& value : accounts) {
        const QJsonObject account = value.toObject();
        if (!Sync::matches(account, m_editedAccount, m_editedAccount.trimmed()))
            continue;
        namespace Reply =
            Orv::Common::Communication::Commands::Format::Storage::GetConnection::Reply;
        typeName = AccountTypes::TypeToName().value(
            Kel::Cloud::typeFromValue(account.value(QLatin1String(Reply::Type)).toInt()));
        break;
    }
    if (typeName.isEmpty())
        m_editPreparationError = QStringLiteral("Can not find account.\n");
    else
        m_arguments.insert(m_arguments.indexOf(CommandBase::Edit) + 1, typeName);
    m_waitDone = true;
    emit waitComplete();
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
