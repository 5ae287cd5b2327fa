#include "orvCommon/Communication/Manager.h"

#include "orvCommon/AppPath.h"
#include "orvCommon/Communication/Connection.h"
#include "orvCommon/Communication/ICommand.h"
#include "orvCommon/Communication/Notification.h"
#include "orvCommon/Communication/Registry.h"
#include "orvCommon/Communication/V2Command.h"

#include <QCoreApplication>

namespace Orv::Common::Communication {

namespace {

QPointer<Manager>& current()
{
    static QPointer<Manager> manager;
    return manager;
}

} // namespace

int retryDelayMs()
{
    bool ok = false;
    const int value = qEnvironmentVariableIntValue("ORV_RETRY_DELAY_MS", &ok);
    return ok && value >= 0 ? value : 60000;
}

Manager::Manager(QObject* parent)
    : QObject(parent), m_serverName(Orv::Defines::AppPath::to().serviceSocket()),
      m_sessionId(QUuid::createUuid().toString(QUuid::WithoutBraces))
{
}

QPointer<Manager> Manager::instance()
{
    if (!current() && QCoreApplication::instance())
        current() = new Manager(QCoreApplication::instance());
    return current();
}

Connection* Manager::connectionIfAny()
{
    return current() ? current()->m_connection : nullptr;
}

void Manager::initConnectionAgent(int kind, const QJsonObject& agentInfo)
{
    m_agentKind = kind;
    m_agentInfo = agentInfo;
}

void Manager::setServerName(const QString& serverName)
{
    m_serverName = serverName;
    delete m_connection;
    m_connection = nullptr;
}

Connection* Manager::connection()
{
    if (!m_connection) {
        m_connection = new Connection(m_serverName, m_sessionId, m_agentKind, this);
        if (m_center)
            connect(m_connection, &Connection::notificationReceived, m_center,
                    &Notification::Center::notification);
    }
    return m_connection;
}

ICommand* Manager::commandFactory(const QString& name)
{
    if (!Registry::isNamedCommand(name))
        return nullptr;
    return new ICommand(name);
}

V2::Command* Manager::commandFactoryV2(const QUuid& commandId)
{
    return Registry::createTypedCommand(commandId);
}

INotification* Manager::notificationFactory(const QUuid& type)
{
    if (!Registry::isNotificationType(type))
        return nullptr;
    return new INotification(type);
}

QPointer<Notification::Center> Manager::notificationCenter()
{
    if (!m_center) {
        m_center = new Notification::Center(this);
        // A connection made from now on is wired to the centre by connection();
        // only one that already exists needs it here, or each notification
        // would be delivered twice.
        if (m_connection)
            connect(m_connection, &Connection::notificationReceived, m_center,
                    &Notification::Center::notification);
    }
    connection()->subscribe();
    return m_center;
}

} // namespace Orv::Common::Communication
