#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QSharedPointer>
#include <QString>
#include <QStringList>

namespace Orv::Info::Plan {
class Base;
}

namespace Orv::Service {

class AccountCatalog;
class PlanCatalog;

// Reads an exported configuration (see ConfigFile) into this instance. The
// whole file is read and every secret opened before anything changes: a file
// that is damaged, truncated, foreign, newer or opened with the wrong
// passphrase changes nothing. Then settings take the file's values, and each
// account and plan is added with its secrets sealed under this instance's key,
// unless its ID or name is already taken here: an existing account or plan is
// never replaced, and the one in the file is reported as not imported. A plan
// whose storage account is neither here nor imported is not imported either.
class ConfigImport
{
public:
    enum Result
    {
        Failed = 0,
        Partial = 1,
        Imported = 2
    };

    struct Section
    {
        int size = 0;
        QStringList failures;
    };

    struct Report
    {
        Result result = Failed;
        QString message;
        Section settings;
        Section accounts;
        Section plans;
        // The reply of "ImportConfiguration".
        QJsonObject toReply() const;
    };

    ConfigImport(AccountCatalog& accounts, PlanCatalog& plans)
        : m_accounts(accounts), m_plans(plans)
    {
    }

    // With a non-empty newPrefix, imported accounts back up under it.
    Report run(const QString& path, const QString& passphrase, const QString& newPrefix);

private:
    struct Contents
    {
        QJsonObject settings;
        QList<QJsonObject> accounts;
        QList<QSharedPointer<Orv::Info::Plan::Base>> plans;
    };

    void importSettings(const QJsonObject& values, Section* section) const;
    void importAccounts(const QList<QJsonObject>& records, const QString& newPrefix,
                        Section* section);
    void importPlans(const QList<QSharedPointer<Orv::Info::Plan::Base>>& plans, Section* section);

    AccountCatalog& m_accounts;
    PlanCatalog& m_plans;
};

} // namespace Orv::Service
