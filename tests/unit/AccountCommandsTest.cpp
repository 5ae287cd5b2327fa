// The account commands against a service made up in the test process, for
// answers the real one never gives: records left empty, a synchronisation
// already running, a service that asks to try later.

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/V2/GetConnection.h"
#include "unit/InProcessService.h"

#include <QJsonArray>

using namespace Orv::Service;
namespace Format = Orv::Common::Communication::Commands::Format;
using GetConnection = Orv::Common::Communication::V2::GetConnection;

namespace {

const QString kLong = QStringLiteral("{2c7e9a3b-5d1f-4e8a-9b6c-0f3d2a1e4b57}");
const QString kBusy = QStringLiteral("{8f4b2d6e-1a3c-4f5e-8d7b-9c0e1f2a3b46}");
const QString kOld = QStringLiteral("{5a6b7c8d-9e0f-4a1b-8c2d-3e4f5a6b7c8d}");

class AccountCommands : public InProcessService
{
protected:
    void SetUp() override
    {
        InProcessService::SetUp();
        records = QJsonArray{
            QJsonObject(),
            QJsonObject{{"DisplayName", "Long account name"}, {"ID", kLong}, {"Type", 11}},
            QJsonObject{{"DisplayName", "Busy"}, {"ID", kBusy}, {"Type", 1}, {"SyncStatus", true}},
            QJsonObject{{"DisplayName", "Old"}, {"ID", kOld}, {"Type", 5}},
        };
        registry.addNamed(Format::Storage::GetConnection::Name, [this](const QJsonObject&,
                                                                       const RequestContext&) {
            return NamedOutcome::success({{Format::Storage::GetConnection::Reply::Key, records}});
        });
        registry.addNamed(Format::Storage::SynchronizeRepository::Name,
                          [this](const QJsonObject&, const RequestContext&) {
                              ++syncRequests;
                              return NamedOutcome::success();
                          });
        registry.addTyped<GetConnection>(
            [this](const GetConnection::Request&, const RequestContext&) {
                if (++fetches < 3)
                    return TypedOutcome::tryLater();
                GetConnection::Response response;
                return TypedOutcome::done(response);
            });
    }

    QJsonArray records;
    int syncRequests = 0;
    int fetches = 0;
};

} // namespace

TEST_F(AccountCommands, ListSkipsEmptyRecordsAndNamesEveryType)
{
    const Outcome list = run({"account", "list"});
    EXPECT_EQ(list.result, 0);
    EXPECT_EQ(list.printed, kBanner +
                                "Accounts list:\n"
                                "Long account name : S3 Compatible\t" +
                                kLong.toUtf8() +
                                "\n"
                                "Busy              : File System\t" +
                                kBusy.toUtf8() +
                                "\n"
                                "Old               : Rackspace\t" +
                                kOld.toUtf8() + "\n");

    records = QJsonArray{QJsonObject(), QJsonObject()};
    const Outcome empty = run({"account", "list"});
    EXPECT_EQ(empty.result, -1);
    EXPECT_EQ(empty.printed, kBanner + "Account list is empty\n");
}

TEST_F(AccountCommands, SyncOfARunningSynchronisationSendsNothing)
{
    const Outcome busy = run({"account", "sync", "-c", "--name", "Busy"});
    EXPECT_EQ(busy.result, -1);
    EXPECT_EQ(busy.printed, kBanner + "Error: sync is started.\n\n");
    EXPECT_EQ(syncRequests, 0);

    const Outcome idle = run({"account", "sync", "-c", "--id", kLong});
    EXPECT_EQ(idle.result, 0);
    EXPECT_EQ(idle.printed, kBanner + "\nSuccess.\n");
    EXPECT_EQ(syncRequests, 1);
}

TEST_F(AccountCommands, EditFetchIsRetriedUntilTheServiceAnswers)
{
    // The look-up by name finds the account; the typed fetch is asked to try
    // later twice and then answers without it.
    const Outcome edit = run({"account", "edit", "--name", "Busy", "-p", "x"});
    EXPECT_EQ(fetches, 3);
    EXPECT_EQ(edit.result, -1);
    EXPECT_EQ(edit.printed, kBanner + "Invalid account Id or account Name.\n\n");
}
