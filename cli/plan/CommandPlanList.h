#pragma once

#include "CommandBase.h"

namespace Orv::CLI {

// "plan list": every plan in its short form, or only the backup or only the
// restore plans.
class CommandPlanList : public CommandBase
{
    Q_OBJECT
public:
    explicit CommandPlanList(QObject* parent = nullptr);

    int process(const QStringList& words) override;

private slots:
    void onGetPlanListResult();

private:
    void getPlanList();
    // The Type word of the plans to show; empty for all.
    QString wantedType() const;

    QCommandLineOption m_backupOption;
    QCommandLineOption m_restoreOption;
};

} // namespace Orv::CLI
