#pragma once

#include "CommandExistingPlanBase.h"

namespace Orv::CLI {

// "plan details": the plan's row in its detailed form (with the progress
// steps when asked for), then the summary of the plan's settings.
class CommandPlanDetailInfo : public CommandExistingPlanBase
{
    Q_OBJECT
public:
    explicit CommandPlanDetailInfo(QObject* parent = nullptr);

protected:
    void planFound(const QSharedPointer<Orv::Info::PlanObject>& plan) override;

private slots:
    // The account list names the plan's destination.
    void onGetAccountListResult();

private:
    QString summary(const QJsonArray& accounts) const;

    QCommandLineOption m_progressOption;
    QSharedPointer<Orv::Info::PlanObject> m_plan;
};

} // namespace Orv::CLI
