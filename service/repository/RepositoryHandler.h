#pragma once

#include "orvCommon/Communication/V2/RepositoryCommands.h"
#include "orvRepository/Repository.h"
#include "service/channel/TypedOutcome.h"
#include "service/channel/TypedResponder.h"

#include <QObject>
#include <QSet>
#include <QThreadPool>
#include <QUuid>
#include <functional>

namespace Orv::Service {

class AccountCatalog;
class HandlerRegistry;
class PlanCatalog;

// Answers the repository commands: what a storage account holds in either
// backup format (bunches, generations, restore points, the content of a
// point), deep sync, and the removal of a bunch or a generation; the current
// format's data is shown in the new one's objects (see
// Orv::Info::Repository::kCurrentFormatGeneration). The account
// is looked up on the event loop; the storage is read on a worker thread, and
// the answer comes back to the event loop when the work is done.
//
// A deep sync or removal is refused while the bunch's backup plan runs (the
// run writes the same data) and while another one works on the bunch; the
// content of a bunch is not read while one of them does. The content of an
// encrypted bunch is read with the password of its plan when the request
// brings none, as the service that made the backups knows it.
class RepositoryHandler : public QObject
{
    Q_OBJECT
public:
    using Request = Orv::Common::Communication::V2::Repository::RepositoryRequest;
    // Whether the plan runs; the bunch of a plan is its id without braces.
    using PlanRunning = std::function<bool(const QUuid& planId)>;
    // Runs on a worker thread with everything it may use.
    using Work = std::function<TypedOutcome(const Orv::Repository::Repository& repository,
                                            const Request& request)>;

    // cacheRoot is the folder of the repositories' local caches, the one the
    // runs use, so that listings see what the runs wrote. The catalogs must
    // outlive the requests handled on the event loop; the workers never use them.
    RepositoryHandler(AccountCatalog& accounts, PlanCatalog& plans, const QString& cacheRoot,
                      PlanRunning planRunning, QObject* parent = nullptr);
    // Waits for the work under way.
    ~RepositoryHandler() override;

    void install(HandlerRegistry& registry);

private:
    enum class Kind
    {
        List,   // reads listings only
        Browse, // reads a restore point through the local cache
        Change, // rewrites the storage or the cache of a bunch
    };

    template <typename Definition> void add(HandlerRegistry& registry, Kind kind, Work work);
    void handle(const Request& request, Kind kind, const Work& work,
                const TypedResponder& responder);
    bool makeLocation(const QUuid& accountId, Orv::Repository::Location* location, QString* error);
    QString refusal(const Request& request, Kind kind) const;
    QString planPassword(const QString& bunch);

    AccountCatalog& m_accounts;
    PlanCatalog& m_plans;
    QString m_cacheRoot;
    PlanRunning m_planRunning;
    // "<account>/<bunch>" of each deep sync or removal under way.
    QSet<QString> m_changing;
    QThreadPool m_pool;
};

} // namespace Orv::Service
