#pragma once

#include "CommandPlanBase.h"

namespace Orv::CLI {

class LoadPlanObject;

// "plan edit_backup": loads a backup plan, applies the options given and
// hands the plan back to the service.
class CommandEditBackupPlan : public CommandPlanBase
{
    Q_OBJECT
public:
    explicit CommandEditBackupPlan(QObject* parent = nullptr);

    int process(const QStringList& words) override;

private slots:

private:
    void onAccountResolved();
    void onCloudTypeKnown();
    // Applies the options given to the loaded plan; throws the message.
    void changePlan();
    void editPlan();

    Orv::Info::Plan::BackupFile m_plan;
};

} // namespace Orv::CLI
