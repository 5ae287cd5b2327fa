#pragma once

#include "CommandPlanBase.h"

namespace Orv::CLI {

// "plan create_backup": a new file backup plan from the options, handed to
// the service.
class CommandCreateBackupPlan : public CommandPlanBase
{
    Q_OBJECT
public:
    explicit CommandCreateBackupPlan(QObject* parent = nullptr);

    int process(const QStringList& words) override;

private slots:
    void onCreatePlanResult();

private:
    void createBackupPlan();
    void onAccountResolved();
    void onCloudTypeKnown();
    // Fills the plan in a fixed order; throws the message.
    void initPlan();
    void sendPlan();

    Orv::Info::Plan::BackupFile m_plan;
};

} // namespace Orv::CLI
