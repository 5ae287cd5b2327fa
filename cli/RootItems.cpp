#include "RootItems.h"

#include "account/GroupAccount.h"
#include "config/GroupConfig.h"
#include "feedback/GroupFeedback.h"
#include "maintenance/CommandVersion.h"
#include "plan/GroupPlan.h"
#include "storage/GroupStorage.h"

namespace Orv::CLI {

void addCommonRootItems(CommandGroupBase* root, bool allAccountTypes)
{
    root->addSubItem(QSharedPointer<CommandVersion>::create());
    root->addSubItem(QSharedPointer<PlanGroup>::create());
    root->addSubItem(QSharedPointer<AccountGroup>::create(allAccountTypes));
    root->addSubItem(QSharedPointer<FeedbackGroup>::create());
    root->addSubItem(QSharedPointer<StorageGroup>::create());
    root->addSubItem(QSharedPointer<ConfigGroup>::create());
}

} // namespace Orv::CLI
