#pragma once

#include "CommandExistingPlanBase.h"

#include <QUuid>

namespace Orv::CLI {

// "plan delete": removes a plan; without "confirm" it only shows which plan
// it would remove. The plan's backup data stays in storage.
class CommandDeletePlan : public CommandExistingPlanBase
{
    Q_OBJECT
public:
    explicit CommandDeletePlan(QObject* parent = nullptr);

protected:
    void planFound(const QSharedPointer<Orv::Info::PlanObject>& plan) override;

private slots:
    void onDeletePlanResult();

private:
    void deletePlan();

    QCommandLineOption m_confirmOption;
    QUuid m_planId;
};

} // namespace Orv::CLI
