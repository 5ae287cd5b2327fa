#include "CommandCreateBackupPlan.h"

#include "CommandChannel.h"
#include "Console.h"
#include "orvCommon/Communication/Format.h"

#include <QDateTime>

namespace Orv::CLI {

using namespace Orv::Info::Plan;
namespace CommonEdit = Orv::Common::Communication::Commands::Format::Plan::CommonEdit;

CommandCreateBackupPlan::CommandCreateBackupPlan(QObject* parent)
    : CommandPlanBase(QStringLiteral("create_backup"),
                      QStringLiteral("create a new plan to backup files to storage"), Create,
                      Backup, parent)
{
    connect(this, &CommandPlanBase::connectionInfoLoaded, this,
            &CommandCreateBackupPlan::onAccountResolved);
    connect(this, &CommandPlanBase::cloudTypeLoaded, this,
            &CommandCreateBackupPlan::onCloudTypeKnown);
}

int CommandCreateBackupPlan::process(const QStringList& words)
{
    const int result = CommandPlanBase::process(words);
    if (result != Valid)
        return result;
    if (!given(m_confirmOption)) {
        emit error(QStringLiteral("Please confirm create backup plan.\n"));
        return Started;
    }
    createBackupPlan();
    return Started;
}

void CommandCreateBackupPlan::createBackupPlan()
{
    m_plan = BackupFile();
    loadConnectionInfo();
}

void CommandCreateBackupPlan::onAccountResolved()
{
    if (getStorageId().isNull()) {
        emit error(QStringLiteral("Invalid account Id or account Name.\n"));
        return;
    }
    m_plan.setName(given(m_nameOption) ? valueOf(m_nameOption)
                                       : QStringLiteral("Backup plan ") +
                                             QDateTime::currentDateTime().toString(
                                                 QStringLiteral("dd.MM.yyyy hh:mm:ss")));
    m_plan.setId(QUuid::createUuid());
    m_plan.setStorage(getStorageId());
    m_plan.setAccountId(getStorageId());
    m_plan.setIsArchive(planFormatWords().value(valueOf(m_formatOption)) == Nbf);
    cloudType(getStorageId());
}

void CommandCreateBackupPlan::onCloudTypeKnown()
{
    try {
        initPlan();
        sendPlan();
    } catch (const QString& message) {
        emit error(message);
    }
}

void CommandCreateBackupPlan::initPlan()
{
    const bool nbf = m_plan.isArchive();
    if (nbf && storageType() == Kel::Cloud::Type::Openstack)
        throw QStringLiteral("OpenStack is not supported as a backup storage for backup plans in "
                             "the new backup format.");
    setStorageOptions(m_plan, storageType());
    fillBackupPlan(m_plan, nbf);
}

void CommandCreateBackupPlan::sendPlan()
{
    const QPointer<Orv::Common::Communication::Manager> manager =
        Orv::Common::Communication::Manager::instance();
    CommandChannel::ICommand* command =
        manager ? manager->commandFactory(QLatin1String(CommonEdit::Name)) : nullptr;
    if (!command)
        throw QStringLiteral("Communication command don't registered\nFail\n");
    // Owned here: the command ends before its reply may come, and the reply
    // then goes nowhere.
    command->setParent(this);
    QString xmlError;
    // In clear: the service seals the password before it reaches the disk.
    const QString xml = m_plan.toXml(Base::SecretForm::Plain, &xmlError);
    if (xml.isEmpty()) {
        command->deleteLater();
        throw xmlError;
    }
    command->setRequest(CommandChannel::namedRequest(
        {{QLatin1String(CommonEdit::Request::Profile), QString::fromLocal8Bit(qgetenv("USER"))},
         {QLatin1String(CommonEdit::Request::PlanXml), xml},
         {QLatin1String(CommonEdit::Request::ID), m_plan.id().toString()}}));
    connect(command, &CommandChannel::ICommand::complite, this,
            &CommandCreateBackupPlan::onCreatePlanResult);
    connect(command, &CommandChannel::ICommand::error, this,
            &CommandCreateBackupPlan::onCreatePlanResult);
    connect(command, &CommandChannel::ICommand::timeout, this,
            &CommandCreateBackupPlan::onCreatePlanResult);
    command->exec();
    // Success is told as soon as the request is on its way; the reply is
    // printed only if it comes before the run ends.
    emit finished(Show);
}

void CommandCreateBackupPlan::onCreatePlanResult()
{
    auto* command = qobject_cast<CommandChannel::ICommand*>(sender());
    command->deleteLater();
    const QJsonDocument reply = command->reply();
    if (command->isError() || !command->isComplite() || reply.isNull() || !reply.isObject()) {
        print(QStringLiteral("Local command reply format error\nFail\n"));
        return;
    }
    if (command->isReplyError()) {
        print(command->replyErrorString() + QStringLiteral("\n"));
        return;
    }
    print(QStringLiteral("\nSuccess\n"));
}

} // namespace Orv::CLI
