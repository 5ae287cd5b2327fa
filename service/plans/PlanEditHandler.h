#pragma once

#include <functional>

namespace Orv::Service {

class AccountCatalog;
class HandlerRegistry;
class JobRunner;
class PlanCatalog;
class RunHistory;

// Creates, replaces and removes plans: the named "CommonPlanEdit" (the plan's
// XML, passwords in clear or sealed with this instance's key) and the typed
// RemovePlan. A plan is checked before it is written: it must be a plan this
// version reads, name a storage account that exists and carry the ID the
// request names. Removing a plan stops its run first; its backup data stays
// in storage.
class PlanEditHandler
{
public:
    // Everything must outlive this object.
    PlanEditHandler(PlanCatalog& plans, AccountCatalog& accounts, RunHistory& history,
                    JobRunner& runner);

    void install(HandlerRegistry& registry);
    // Called after a plan was saved or removed.
    void setChanged(std::function<void()> changed) { m_changed = std::move(changed); }

private:
    void changed() const
    {
        if (m_changed)
            m_changed();
    }

    PlanCatalog& m_plans;
    AccountCatalog& m_accounts;
    RunHistory& m_history;
    JobRunner& m_runner;
    std::function<void()> m_changed;
};

} // namespace Orv::Service
