#pragma once

#include "CommandCreateRestorePlan.h"

namespace Orv::CLI {

// "plan edit_restore": loads a restore plan, applies the options given and
// hands the plan back to the service. A new-format plan whose bunch, point or
// paths change is placed and checked again as on creation.
class CommandEditRestorePlan : public CommandCreateRestorePlan
{
    Q_OBJECT
public:
    explicit CommandEditRestorePlan(QObject* parent = nullptr);

    int process(const QStringList& words) override;

protected:
    void accountResolved() override;
    bool restoresFromBunch() const override;
    QString bunchKey() const override;
    void fillPlan() override;
    void sendPlan() override;

private slots:
    void onCloudTypeKnown();

private:
    // Applies the options given to the loaded plan; throws the message.
    void changePlan();
    void editPlan();
};

} // namespace Orv::CLI
