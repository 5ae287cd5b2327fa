// Files an administrator names or edits by hand and gets wrong: a key option
// naming something that is not a key file, a garbled settings file, account
// files that do not parse. Each is refused or reported with its path and
// reason, never read without end nor hidden.

#include "support/Sandbox.h"

#include <QDir>
#include <gtest/gtest.h>
#include <sys/stat.h>

using OrvTest::RunResult;
using OrvTest::Sandbox;

namespace {

const QByteArray kBanner = "Orv Backup Command Line Interface started\n\n";

QStringList words(const QString& line)
{
    return line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

} // namespace

TEST(DamagedFiles, KeyOptionsReadOnlySmallRegularFiles)
{
    Sandbox sandbox;
    sandbox.writeFile(QStringLiteral("huge.key"), QByteArray(64 * 1024 + 1, 'k'));
    const QString fifo = sandbox.path(QStringLiteral("pipe.key"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    const QString sftp = QStringLiteral("account add sftp --name A -e host -u me -c /srv -k ");
    const QString google =
        QStringLiteral("account add googlestorage --name A -b B -t ServiceAcc --project-id P -k ");
    const QString notRegular = QStringLiteral("Can't open file: %1 (it is not a regular file)\n");
    const QList<QPair<QString, QString>> cases = {
        {sftp + sandbox.root(), notRegular.arg(sandbox.root())},
        {sftp + "/dev/zero", notRegular.arg("/dev/zero")},
        {google + fifo, notRegular.arg(fifo)},
        {sftp + sandbox.path("huge.key"),
         QStringLiteral("Can't open file: %1 (it is larger than 64 KiB, which no key is)\n")
             .arg(sandbox.path("huge.key"))},
    };
    for (const auto& [line, message] : cases) {
        SCOPED_TRACE(line.toStdString());
        const RunResult result = sandbox.run(words(line), {}, {}, 20000);
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_EQ(result.out, kBanner + message.toUtf8() + "\nUnknown command.\n\n");
    }
    EXPECT_FALSE(sandbox.exists(QStringLiteral("config/accounts")));
}

// The settings file and account files garbled by hand: the service names each
// at start-up, the account list says on standard error what it left out while
// its output stays as it is, and a damaged account goes away by the ID its
// file is named after. (What the settings commands say: SettingsCommandLine.)
TEST(DamagedFiles, DamagedConfigurationIsReportedAndRemovable)
{
    Sandbox sandbox;
    const QString untypedId = QStringLiteral("11111111-2222-3333-4444-555555555555");
    const QString untyped = QStringLiteral("config/accounts/%1.json").arg(untypedId);
    sandbox.writeFile(QStringLiteral("config/defaultSettings.conf"), "{\"MultiThread threads");
    sandbox.writeFile(untyped, "{\"ID\": \"{" + untypedId.toUtf8() + "}\", \"Type\": 99}");
    sandbox.writeFile(QStringLiteral("config/accounts/notes.json"), "not json");
    ASSERT_TRUE(sandbox.startService());
    ASSERT_EQ(sandbox
                  .run(words("account add filesystem --name Local -f " +
                             sandbox.path(QStringLiteral("storage"))))
                  .exitCode,
              0);

    const RunResult listed = sandbox.run(words("account list"));
    EXPECT_EQ(listed.exitCode, 0);
    EXPECT_TRUE(listed.out.startsWith(kBanner + "Accounts list:\nLocal : File System\t{"));
    EXPECT_TRUE(listed.err.contains(untypedId.toUtf8() + ".json was skipped: the account type 99 "
                                                         "is unknown"))
        << listed.err.data();
    EXPECT_TRUE(listed.err.contains("account delete --id " + untypedId.toUtf8() + " -c"));
    EXPECT_TRUE(listed.err.contains("notes.json was skipped: it is not JSON"));

    EXPECT_EQ(sandbox.run(words("account delete --id " + untypedId + " -c")).exitCode, 0);
    EXPECT_FALSE(sandbox.exists(untyped));
    QDir(sandbox.path(QStringLiteral("config/accounts"))).remove(QStringLiteral("notes.json"));
    const RunResult repaired = sandbox.run(words("account list"));
    EXPECT_EQ(repaired.out, listed.out);
    EXPECT_EQ(repaired.err, QByteArray());
    EXPECT_EQ(sandbox.stopService(), 0);

    // Reported once each at start-up, where whoever started the service looks.
    const QByteArray console = sandbox.readFile(QStringLiteral("logs/orvd.console.log"));
    EXPECT_EQ(console.count("defaultSettings.conf is damaged"), 1) << console.data();
    EXPECT_EQ(console.count(untypedId.toUtf8() + ".json: the account type 99 is unknown"), 1);
    EXPECT_EQ(console.count("notes.json: it is not JSON"), 1);
}
