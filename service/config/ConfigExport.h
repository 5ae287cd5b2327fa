#pragma once

#include <QSet>
#include <QString>
#include <QUuid>

namespace Orv::Service {

class AccountCatalog;
class PlanCatalog;

// Writes the instance's configuration (settings, storage accounts, plans) to
// one file (see ConfigFile). Secrets are opened with this instance's key and
// sealed again under the passphrase, or left out altogether; in the latter
// case backup plans are written with their encryption turned off, since no
// one could give their data's password after the import.
class ConfigExport
{
public:
    struct Options
    {
        QString passphrase;
        bool removeSecrets = false;
        QSet<QUuid> excludedPlans;
    };

    ConfigExport(AccountCatalog& accounts, PlanCatalog& plans)
        : m_accounts(accounts), m_plans(plans)
    {
    }

    // Writes the file whole or not at all. Empty on success, else the reason.
    QString write(const QString& path, const Options& options);

private:
    AccountCatalog& m_accounts;
    PlanCatalog& m_plans;
};

} // namespace Orv::Service
