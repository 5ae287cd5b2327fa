#include "CommandEditBackupPlan.h"

#include "CommandChannel.h"
#include "Console.h"
#include "LoadPlanObject.h"
#include "orvCommon/Communication/Format.h"
#include "orvInfo/Plan/Factory.h"

namespace Orv::CLI {

using namespace Orv::Info::Plan;

CommandEditBackupPlan::CommandEditBackupPlan(QObject* parent)
    : CommandPlanBase(QStringLiteral("edit_backup"), QStringLiteral("edit an existing backup plan"),
                      Edit, Backup, parent)
{
    connect(this, &CommandPlanBase::connectionInfoLoaded, this,
            &CommandEditBackupPlan::onAccountResolved);
    connect(this, &CommandPlanBase::cloudTypeLoaded, this,
            &CommandEditBackupPlan::onCloudTypeKnown);
}

int CommandEditBackupPlan::process(const QStringList& words)
{
    const int result = CommandPlanBase::process(words);
    if (result != Valid)
        return result;
    return lookUpPlanToEdit([this](const QSharedPointer<Base>& found) {
        const QSharedPointer<BackupFile> plan = found.dynamicCast<BackupFile>();
        if (!plan) {
            emit error(QStringLiteral("Could not edit backup plan"));
            return;
        }
        m_plan = *plan;
        if (given(m_accountOption))
            loadConnectionInfo();
        else
            cloudType(m_plan.storage());
    });
}

void CommandEditBackupPlan::onAccountResolved()
{
    m_plan.setStorage(getStorageId());
    m_plan.setAccountId(getStorageId());
    cloudType(getStorageId());
}

void CommandEditBackupPlan::onCloudTypeKnown()
{
    try {
        changePlan();
        editPlan();
    } catch (const QString& message) {
        emit error(message);
    }
}

void CommandEditBackupPlan::changePlan()
{
    const bool nbf = m_plan.isArchive();
    if (given(m_formatOption) && (planFormatWords().value(valueOf(m_formatOption)) == Nbf) != nbf)
        throw QStringLiteral("The backup format of an existing plan cannot be changed.\n");
    // Options of the other format are refused rather than silently kept.
    const QList<const QCommandLineOption*> cbfOnly{&m_blockLevelOption,
                                                   &m_saveConfigOption,
                                                   &m_deleteVersionOlderOption,
                                                   &m_deleteVersionOlderAgeOption,
                                                   &m_deleteVersionOlderTypeOption,
                                                   &m_keepLastVersionOption,
                                                   &m_keepVersionOption,
                                                   &m_keepVersionNumberOption,
                                                   &m_deleteLocallyOption,
                                                   &m_deleteLocallyDelayOption,
                                                   &m_deleteDateTypeOption};
    for (const QCommandLineOption* item : cbfOnly)
        if (nbf && given(*item))
            throw QStringLiteral("Option ") + bracketed(*item) + QStringLiteral(" only for cbf.\n");
    for (const QCommandLineOption* item : {&m_keepBackupTypeOption, &m_keepBackupNumberOption})
        if (!nbf && given(*item))
            throw bracketed(*item) + QStringLiteral(" can't be used with CBF.\n");
    // Found by id, the plan may be renamed.
    if (given(m_idOption) && given(m_nameOption))
        m_plan.setName(valueOf(m_nameOption));
    setStorageOptions(m_plan, storageType());
    fillBackupPlan(m_plan, nbf);
    if (planChanged())
        print(QStringLiteral("This changes will force a Full backup.\n"));
}

void CommandEditBackupPlan::editPlan()
{
    sendEditedPlan(m_plan);
}

} // namespace Orv::CLI
