#pragma once

#include "CommandExistingPlanBase.h"

#include <QUuid>

namespace Orv::CLI {

// "plan stop": asks the service to stop a running plan.
class CommandStopPlan : public CommandExistingPlanBase
{
    Q_OBJECT
public:
    explicit CommandStopPlan(QObject* parent = nullptr);

protected:
    void planFound(const QSharedPointer<Orv::Info::PlanObject>& plan) override;

private slots:
    void onStopPlanResult();

private:
    void stopPlan();

    QUuid m_planId;
};

} // namespace Orv::CLI
