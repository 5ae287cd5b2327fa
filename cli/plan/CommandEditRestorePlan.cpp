#include "CommandEditRestorePlan.h"

#include "CommandChannel.h"
#include "LoadPlanObject.h"
#include "orvCommon/Communication/Format.h"
#include "orvInfo/Plan/Factory.h"

namespace Orv::CLI {

using namespace Orv::Info::Plan;

CommandEditRestorePlan::CommandEditRestorePlan(QObject* parent)
    : CommandCreateRestorePlan(QStringLiteral("edit_restore"),
                               QStringLiteral("edit an existing restore plan"), Edit, parent)
{
    connect(this, &CommandPlanBase::cloudTypeLoaded, this,
            &CommandEditRestorePlan::onCloudTypeKnown);
}

int CommandEditRestorePlan::process(const QStringList& words)
{
    const int result = CommandCreateRestorePlan::process(words);
    if (result != Valid)
        return result;
    return lookUpPlanToEdit([this](const QSharedPointer<Base>& found) {
        const QSharedPointer<RestoreFile> plan = found.dynamicCast<RestoreFile>();
        if (!plan) {
            emit error(QStringLiteral("Could not edit restore plan.\n"));
            return;
        }
        m_plan = *plan;
        if (given(m_accountOption))
            loadConnectionInfo();
        else
            cloudType(m_plan.storage());
    });
}

void CommandEditRestorePlan::accountResolved()
{
    m_plan.setStorage(getStorageId());
    m_plan.setAccountId(getStorageId());
    m_accountId = getStorageId();
    loadRestoreSource();
}

void CommandEditRestorePlan::onCloudTypeKnown()
{
    m_accountId = m_plan.storage();
    loadRestoreSource();
}

bool CommandEditRestorePlan::restoresFromBunch() const
{
    const bool nbf = m_plan.isArchive() || given(m_bunchOption);
    return nbf && (given(m_bunchOption) || given(m_restorePointOption) ||
                   given(m_latestVersionOption) || m_parser.isSet(m_pathOption));
}

QString CommandEditRestorePlan::bunchKey() const
{
    if (given(m_bunchOption))
        return valueOf(m_bunchOption);
    return m_plan.restorePoint().section(QLatin1Char('/'), 0, 0);
}

void CommandEditRestorePlan::fillPlan()
{
    changePlan();
}

void CommandEditRestorePlan::changePlan()
{
    checkFormat(m_plan.isArchive() || given(m_bunchOption));
    // Found by id, the plan may be renamed.
    if (given(m_idOption) && given(m_nameOption))
        m_plan.setName(valueOf(m_nameOption));
    if (given(m_bunchOption))
        m_plan.setIsArchive(true);
    setRestoreType();
    if (restoresFromBunch())
        initRestorePoint();
    setRestoreItems();
    setRestoreOptions();
}

void CommandEditRestorePlan::sendPlan()
{
    editPlan();
}

void CommandEditRestorePlan::editPlan()
{
    sendEditedPlan(m_plan);
}

} // namespace Orv::CLI
