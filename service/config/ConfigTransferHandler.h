#pragma once

#include <QObject>
#include <functional>

namespace Orv::Service {

class AccountCatalog;
class HandlerRegistry;
class PlanCatalog;

// Answers "ExportConfiguration" and "ImportConfiguration": the service writes
// and reads the configuration file itself, since only it can open the secrets
// sealed with this instance's key. Both run on the event loop: they change the
// catalogs, which are not shared with other threads.
class ConfigTransferHandler : public QObject
{
    Q_OBJECT
public:
    // The catalogs must outlive this object; plansChanged runs after an
    // import added plans, so that they are scheduled.
    ConfigTransferHandler(AccountCatalog& accounts, PlanCatalog& plans,
                          std::function<void()> plansChanged, QObject* parent = nullptr);

    void install(HandlerRegistry& registry);

private:
    AccountCatalog& m_accounts;
    PlanCatalog& m_plans;
    std::function<void()> m_plansChanged;
};

} // namespace Orv::Service
