// File-system accounts end to end: orvV2 against the real orvd, folders in
// the sandbox as the storage.

#include "integration/AccountRuns.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QThread>
#include <gtest/gtest.h>

using OrvTest::RunResult;
using OrvTest::Sandbox;

using namespace OrvTest::Accounts;

namespace {

QString idOf(Sandbox& sandbox, const QString& name)
{
    return record(sandbox, name).value(QStringLiteral("ID")).toString();
}

QStringList accountFiles(const Sandbox& sandbox)
{
    return QDir(sandbox.path(QStringLiteral("config/accounts")))
        .entryList({QStringLiteral("*.json")}, QDir::Files);
}

class AccountFileSystem : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(sandbox.startService());
        QDir().mkpath(sandbox.path(QStringLiteral("store")));
    }
    void TearDown() override { EXPECT_EQ(sandbox.stopService(), 0); }

    QString store(const QString& relative = QString()) const
    {
        return sandbox.path(QStringLiteral("store/") + relative);
    }

    Sandbox sandbox;
};

} // namespace

TEST_F(AccountFileSystem, AddListShowEditAndDelete)
{
    expectRun(run(sandbox, "account add filesystem --name Office -p desk -f", {store()}), kSuccess);
    const QString office = idOf(sandbox, QStringLiteral("Office"));
    ASSERT_FALSE(office.isEmpty());
    EXPECT_TRUE(QDir(store(QStringLiteral("ORV_") + office)).exists());

    expectRun(run(sandbox, "account add filesystem -n",
                  {QStringLiteral("Home drive"), QStringLiteral("-f"), store()}),
              kSuccess);
    const QString home = idOf(sandbox, QStringLiteral("Home drive"));
    // Listed in the order of the service's files, named after the IDs.
    QByteArray lines[] = {"Office     : File System\t" + office.toUtf8() + "\n",
                          "Home drive : File System\t" + home.toUtf8() + "\n"};
    if (home < office)
        std::swap(lines[0], lines[1]);
    expectRun(run(sandbox, "account list"), "Accounts list:\n" + lines[0] + lines[1]);

    const QByteArray officeInfo = "Account info:\n\tDisplayName: Office\n\tID: " + office.toUtf8() +
                                  "\n\tPrefix: desk\n\tType: FileSystem\n\tPath: " +
                                  store(QStringLiteral("ORV_") + office).toUtf8() + "\n";
    expectRun(run(sandbox, "account info --name Office"), officeInfo);
    expectRun(run(sandbox, "account info --id", {office}), officeInfo);
    expectRun(run(sandbox, "account info --name office"), "Account not found \n\n", 255);

    // By name: the type is looked up, the options left out keep their values.
    expectRun(run(sandbox, "account edit --name Office --newname Work"), kSuccess);
    expectRun(run(sandbox, "account info --name Work"),
              "Account info:\n\tDisplayName: Work\n\tID: " + office.toUtf8() +
                  "\n\tPrefix: desk\n\tType: FileSystem\n\tPath: " +
                  store(QStringLiteral("ORV_") + office).toUtf8() + "\n");
    // By id, to a new folder.
    expectRun(run(sandbox, "account edit -p night --id",
                  {office, QStringLiteral("-f"), store(QStringLiteral("moved"))}),
              kSuccess);
    const QJsonObject work = record(sandbox, QStringLiteral("Work"));
    EXPECT_EQ(work.value(QStringLiteral("Prefix")).toString(), QStringLiteral("night"));
    EXPECT_EQ(work.value(QStringLiteral("Path")).toString(),
              store(QStringLiteral("moved/ORV_") + office));
    EXPECT_TRUE(QDir(store(QStringLiteral("moved/ORV_") + office)).exists());

    expectRun(run(sandbox, "account edit --name Work --id", {office}), "\n");
    expectRun(run(sandbox, "account edit --name Nobody -p x"), "Can not find account.\n", 255);
    expectRun(run(sandbox, "account edit --name Work --newname", {QStringLiteral("Home drive")}),
              "An account named \"Home drive\" already exists\n", 255);

    expectRun(run(sandbox, "account delete --name Work"),
              "Please confirm remove account: use -c.\n\n");
    EXPECT_EQ(accountFiles(sandbox).size(), 2);
    expectRun(run(sandbox, "account delete -c --name Work"), kSuccess);
    expectRun(run(sandbox, "account delete -c --id", {home}), kSuccess);
    expectRun(run(sandbox, "account delete -c --id", {home}),
              "Error: specified account doesn't exist.\n\n", 255);
    expectRun(run(sandbox, "account list"), "Account list is empty\n", 255);
    EXPECT_TRUE(accountFiles(sandbox).isEmpty());
    // The backup data stays where it is.
    EXPECT_TRUE(QDir(store(QStringLiteral("moved/ORV_") + office)).exists());
    EXPECT_TRUE(QDir(store(QStringLiteral("ORV_") + home)).exists());
}

TEST_F(AccountFileSystem, BadFoldersAndNamesSaveNothing)
{
    expectRun(run(sandbox, "account add filesystem --name A -f relative/path"),
              "Wrong local container specified!\n\n", 255);
    sandbox.writeFile(QStringLiteral("store/file"), "not a folder");
    expectRun(run(sandbox, "account add filesystem --name A -f", {store(QStringLiteral("file"))}),
              "Can not create a directory in the specified path!\n\n", 255);
    expectRun(run(sandbox, "account add filesystem --name A -f", {store()}), kSuccess);
    expectRun(run(sandbox, "account add filesystem --name A -f", {store()}),
              "An account named \"A\" already exists\n", 255);
    expectRun(
        run(sandbox, "account add filesystem -f", {store(), QStringLiteral("--name"), QString()}),
        "The account needs a name\n", 255);
    EXPECT_EQ(accountFiles(sandbox).size(), 1);
    // Only the saved account's folder is left behind.
    EXPECT_EQ(QDir(store()).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size(), 1);
}

TEST_F(AccountFileSystem, NamesAreTakenAsTypedAndIdsTrimmed)
{
    expectRun(run(sandbox, "account add filesystem -f",
                  {store(), QStringLiteral("--name"), QStringLiteral(" Spaced ")}),
              kSuccess);
    const QString id = idOf(sandbox, QStringLiteral(" Spaced "));
    ASSERT_FALSE(id.isEmpty());
    expectRun(run(sandbox, "account edit --id",
                  {QStringLiteral("  ") + id + QStringLiteral(" "), QStringLiteral("-p"),
                   QStringLiteral("p2")}),
              kSuccess);
    EXPECT_EQ(record(sandbox, QStringLiteral(" Spaced ")).value(QStringLiteral("Prefix")),
              QStringLiteral("p2"));
}

TEST_F(AccountFileSystem, SyncFindsTheSpaceUsedAndThePrefixes)
{
    expectRun(run(sandbox, "account add filesystem --name Disk -f", {store()}), kSuccess);
    const QString id = idOf(sandbox, QStringLiteral("Disk"));
    const QString data = QStringLiteral("store/ORV_") + id;
    sandbox.writeFile(data + QStringLiteral("/laptop/index/0001"), "12345");
    sandbox.writeFile(data + QStringLiteral("/server/packs/aa/0002"), "1234567");

    expectRun(run(sandbox, "account sync --name Disk"), "Please confirm sync account: use -c.\n\n");
    EXPECT_EQ(record(sandbox, QStringLiteral("Disk")).value(QStringLiteral("SpaceUsed")), 0);
    expectRun(run(sandbox, "account sync -c --id", {id}), kSuccess);

    QJsonObject disk;
    const QDeadlineTimer deadline(10000);
    do {
        disk = record(sandbox, QStringLiteral("Disk"));
        if (!disk.value(QStringLiteral("SyncStatus")).toBool() &&
            disk.value(QStringLiteral("SpaceUsed")).toInt() > 0)
            break;
        QThread::msleep(20);
    } while (!deadline.hasExpired());
    EXPECT_EQ(disk.value(QStringLiteral("SpaceUsed")).toInt(), 12);
    EXPECT_EQ(disk.value(QStringLiteral("PrefixArray")).toArray(),
              QJsonArray({QStringLiteral("laptop"), QStringLiteral("server")}));
    EXPECT_FALSE(disk.value(QStringLiteral("SyncStatus")).toBool());

    // What the pass found survives a restart of the service.
    EXPECT_EQ(sandbox.stopService(), 0);
    ASSERT_TRUE(sandbox.startService());
    EXPECT_EQ(record(sandbox, QStringLiteral("Disk")).value(QStringLiteral("SpaceUsed")), 12);
    expectRun(run(sandbox, "account sync -c --name Nobody"),
              "Error: specified account doesn't exist.\n\n", 255);
}

TEST_F(AccountFileSystem, ManagedClientKeepsCloudAccountsOutOfReach)
{
    EXPECT_EQ(sandbox.stopService(), 0);
    sandbox.setManaged(true);
    const QString cloudId = QUuid::createUuid().toString();
    const QJsonObject cloud{{"ID", cloudId}, {"DisplayName", "Provider"}, {"Type", 2}};
    sandbox.writeFile(QStringLiteral("config/accounts/cloud.json"), QJsonDocument(cloud).toJson());
    ASSERT_TRUE(sandbox.startService());

    expectRun(run(sandbox, "account add filesystem --name Local -f", {store()}), kSuccess);
    expectRun(run(sandbox, "account delete -c --name Provider"),
              "This storage destination cannot be deleted from the agent, please contact your "
              "service provider.\n\n",
              255);
    EXPECT_TRUE(sandbox.exists(QStringLiteral("config/accounts/cloud.json")));
    // The edit command of a cloud type does not exist here.
    expectRun(run(sandbox, "account edit --name Provider -p x"), "\nUnknown command.\n\n");
    expectRun(run(sandbox, "account delete -c --name Local"), kSuccess);
}

TEST_F(AccountFileSystem, AnAccountWrittenByHandIsKeptInOneFileOnceEdited)
{
    const QString id = QUuid::createUuid().toString();
    const QJsonObject handmade{{"ID", id},
                               {"DisplayName", "Handmade"},
                               {"Type", 1},
                               {"DetailParams", QJsonObject{{"Path", store()}}}};
    sandbox.writeFile(QStringLiteral("config/accounts/handmade.json"),
                      QJsonDocument(handmade).toJson());
    expectRun(run(sandbox, "account edit --name Handmade -p pc"), kSuccess);
    EXPECT_EQ(accountFiles(sandbox),
              QStringList{QUuid(id).toString(QUuid::WithoutBraces) + QStringLiteral(".json")});
    EXPECT_EQ(records(sandbox).size(), 1);
    EXPECT_EQ(record(sandbox, QStringLiteral("Handmade")).value(QStringLiteral("Prefix")),
              QStringLiteral("pc"));
}
