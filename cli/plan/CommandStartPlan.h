#pragma once

#include "CommandExistingPlanBase.h"

#include <QUuid>

namespace Orv::CLI {

// "plan start": runs a plan now, as a full backup with "force-full".
class CommandStartPlan : public CommandExistingPlanBase
{
    Q_OBJECT
public:
    explicit CommandStartPlan(QObject* parent = nullptr);

protected:
    void planFound(const QSharedPointer<Orv::Info::PlanObject>& plan) override;

private slots:
    void onStartPlanResult();

private:
    // Only a backup plan whose backups can be full or incremental takes a
    // forced full backup: one in the new format, or one with block-level backup.
    static void checkForceFull(const Orv::Info::PlanObject& plan);
    void startPlan();

    QCommandLineOption m_forceFullOption;
    QUuid m_planId;
    bool m_isFull = false;
};

} // namespace Orv::CLI
