// The option rules of the account commands: what each one refuses, in which
// order, with which words, in both variants. None of these runs reaches a
// storage.

#include "support/FakeOrvd.h"
#include "support/Sandbox.h"

#include <gtest/gtest.h>

using OrvTest::RunResult;
using OrvTest::Sandbox;

namespace {

const QByteArray kBanner = "Orv Backup Command Line Interface started\n\n";
const QByteArray kUnknown = "\nUnknown command.\n\n";

struct Case
{
    QString line;
    QByteArray out;
};

QStringList words(const QString& line)
{
    return line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

void expectCases(Sandbox& sandbox, const QList<Case>& cases)
{
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line.toStdString());
        const RunResult result = sandbox.run(words(c.line));
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_EQ(result.out, kBanner + c.out);
        EXPECT_EQ(result.err, QByteArray());
    }
}

QByteArray mandatory(const char* names)
{
    return "Option [ " + QByteArray(names) + " ] is mandatory.\n" + kUnknown;
}

} // namespace

TEST(AccountOptions, AddingChecksEachTypesMandatoryOptionsInItsOwnOrder)
{
    Sandbox sandbox;
    const QString amazon = QStringLiteral("account add amazons3 --name A");
    const QString blaze = QStringLiteral("account add backblaze --name A");
    const QString azure = QStringLiteral("account add azure --name A");
    const QString google = QStringLiteral("account add googlestorage --name A -b B");
    const QString sftp = QStringLiteral("account add sftp --name A -e host");
    expectCases(
        sandbox,
        {
            {"account add filesystem -f /tmp", "Options [ n,name ] is mandatory\n"},
            {"account add filesystem --name A", mandatory("f,folder-path")},
            {amazon, mandatory("a,access-key")},
            {amazon + " -a K", mandatory("s,secret-key")},
            {amazon + " -a K -s S", mandatory("b,bucket")},
            {amazon + " -a K -s S -b B --ssl yes",
             "Options [ ssl ] must be 'true' or 'false'.\n" + kUnknown},
            {"account add wasabi --name A -s S -b B", mandatory("a,access-key")},
            {blaze, mandatory("a,application-key")},
            {blaze + " -a K", mandatory("k,key-id")},
            {blaze + " -a K -k I", mandatory("b,bucket")},
            {azure, mandatory("a,account-name")},
            {azure + " -a N", mandatory("s,shared-key")},
            {azure + " -a N -s K", mandatory("c,container-name")},
            {azure + " -a N -s K -c C -t Custom", mandatory("e,endpoint")},
            {azure + " -a N -s K -c C -t Mars", "Unknown azure type.\n\n"},
            {"account add googlestorage --name A", mandatory("b,bucket")},
            {google, mandatory("a,access-key")},
            {google + " -a K", mandatory("s,secret-key")},
            {google + " -t ServiceAcc", mandatory("project-id")},
            {google + " -t ServiceAcc --project-id P", mandatory("k,private-key")},
            {google + " -t InstallApp --project-id P", mandatory("c,auth-code")},
            {google + " -t Oauth", "Unknown auth type: Oauth\n\n"},
            {"account add sftp --name A", mandatory("e,endpoint")},
            {sftp, mandatory("u,user")},
            {sftp + " -u me", mandatory("c,container-path")},
            {sftp + " -u me -c /srv",
             "Options [ password ] or [ k,private-key ] is mandatory.\n" + kUnknown},
            {sftp + " -u me -c /srv -k /no/such/key", "Can't open file: /no/such/key\n" + kUnknown},
            {sftp + " -u me -c /srv --password pw --keep-alive on",
             "Options [ keep-alive ] must be 'true' or 'false'.\n" + kUnknown},
            {"account add minio --name A -a K", mandatory("e,endpoint")},
            {"account add s3compatible --name A", mandatory("e,endpoint")},
        });
}

TEST(AccountOptions, ConflictsAndUnknownValuesComeFirstAndEndWithAnEmptyLine)
{
    Sandbox sandbox;
    expectCases(sandbox, {
                             // The conflict is reported before the missing endpoint and user.
                             {"account add sftp --name A --password pw -k /key",
                              "Options [ password ] and [ k,private-key ] are incompatible.\n\n"},
                             // Only the exact words are signature versions; the refusal is silent.
                             {"account add s3compatible --name A -e h -v aws4", kUnknown},
                             {"account add s3compatible --name A -v AWS5", kUnknown},
                             {"account edit filesystem -f /tmp",
                              "Options [ id ] or [ n,name ] is mandatory\n"},
                             {"account edit frobnicate --newname X", kUnknown},
                         });
}

TEST(AccountOptions, CommandsOnOneAccountNeedExactlyOneNameAndTheirConfirmation)
{
    Sandbox sandbox;
    const QByteArray neither = "Options [ id ] or [ n,name ] is mandatory.\n\n";
    const QByteArray both = "Options [ id ] and [ n,name ] are incompatible.\n\n";
    expectCases(sandbox,
                {
                    {"account delete -c", neither},
                    {"account sync -c", neither},
                    {"account info --prefix x", "Unknown option 'prefix'.\n" + kUnknown},
                    {"account delete -c --id {x} --name A", both},
                    {"account sync --id {x} -n A", both},
                    {"account info --id {x} --name A", both},
                    {"account delete --name A", "Please confirm remove account: use -c.\n\n"},
                    {"account sync --id {x}", "Please confirm sync account: use -c.\n\n"},
                });
    const RunResult help = sandbox.run(words("account info"));
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_TRUE(help.out.startsWith(kBanner + "info  - get storage account details\nUsage: "))
        << help.out.constData();
}

TEST(AccountOptions, WithoutTheServiceEveryRequestEndsInAnError)
{
    Sandbox sandbox;
    for (const char* line : {"account list", "account info --name A", "account delete -n A -c",
                             "account sync -c --name A", "account edit --name A -p x",
                             "account add filesystem --name A -f /tmp"}) {
        SCOPED_TRACE(line);
        const RunResult result = sandbox.run(words(QLatin1String(line)));
        EXPECT_EQ(result.exitCode, 255);
        EXPECT_TRUE(result.out.startsWith(kBanner + "The backup service is not running"))
            << result.out.constData();
        EXPECT_FALSE(result.out.contains("Success"));
    }
    EXPECT_FALSE(sandbox.exists(QStringLiteral("config/accounts")));
}

// A change the service received and then left unanswered, closing the
// connection, may have been made: the administrator is told so, and how to
// check, rather than led to make it twice.
TEST(AccountOptions, AChangeLeftUnansweredIsOfUnknownOutcome)
{
    Sandbox sandbox;
    const OrvTest::FakeOrvd fake(sandbox.socketPath(), QStringLiteral("close-on-change"));
    ASSERT_TRUE(fake.isListening());
    for (const QString& line :
         {QStringLiteral("account add filesystem --name A -f ") + sandbox.root(),
          QStringLiteral("account delete --id 11111111-2222-3333-4444-555555555555 -c")}) {
        SCOPED_TRACE(line.toStdString());
        const RunResult result = sandbox.run(words(line));
        EXPECT_EQ(result.exitCode, 255);
        EXPECT_TRUE(result.out.contains("whether the change was made is unknown. Check with "
                                        "\"account list\" before trying again."))
            << result.out.constData();
    }
}

TEST(AccountOptions, EachVariantOffersItsAccountTypes)
{
    Sandbox sandbox;
    QByteArray all;
    for (const auto& [name, shown] : std::initializer_list<std::pair<const char*, const char*>>{
             {"alibaba", "Alibaba"},
             {"amazons3", "AmazonS3"},
             {"amazons3chinese", "AmazonS3 / Glacier"},
             {"azure", "Azure"},
             {"backblaze", "Backblaze B2"},
             {"filesystem", "File System"},
             {"googlestorage", "Google Storage"},
             {"minio", "Minio"},
             {"s3compatible", "S3 Compatible"},
             {"sftp", "Sftp"},
             {"wasabi", "Wasabi"}})
        all += "\t" + QByteArray(name).leftJustified(20, ' ') + " - add " + shown + " account\n";
    expectCases(sandbox, {{"account add", all + "\n\n"}});

    const RunResult help = sandbox.run(words("account add s3compatible -h"));
    EXPECT_TRUE(
        help.out.startsWith(kBanner + "s3compatible  - add S3 Compatible account\nUsage: "));
    EXPECT_TRUE(help.out.contains("-v, --signature-version <signatureVersion>"));
    EXPECT_TRUE(help.out.contains("Original name of the account \n"));
    EXPECT_TRUE(help.out.contains("is used to keep backups  to\n"));
    EXPECT_TRUE(
        sandbox.run(words("account edit sftp -h")).out.contains("--newname <accountNewName>"));

    sandbox.setManaged(true);
    expectCases(sandbox,
                {
                    {"account add", "\tfilesystem           - add File System account\n\n\n"},
                    {"account edit", "\tfilesystem           - edit File System account\n\n\n"},
                    {"account add s3compatible --name A -e h", kUnknown},
                });
}

TEST(AccountOptions, SecretsNeverReachTheLog)
{
    Sandbox sandbox;
    sandbox.run(words("account add amazons3 --name A -a ACCESS-1 -s SECRET-1 -b B --ssl yes"));
    sandbox.run(words("account add googlestorage --name G -b B -t InstallApp --project-id P -c "
                      "CODE-1 --refresh-token TOKEN-1"));
    sandbox.run(words("account add sftp --name S -e h -u me -c /srv --password SECRET-2"));
    sandbox.run(words("account add backblaze --name B -a SECRET-3 -k KEYID-1"));
    const QByteArray log = sandbox.readFile(QStringLiteral("logs/CommandLineV2.log"));
    ASSERT_TRUE(
        log.contains("Command: account add amazons3 --name A -a **** -s **** -b B --ssl yes"))
        << log.constData();
    for (const char* secret :
         {"ACCESS-1", "SECRET-1", "CODE-1", "TOKEN-1", "SECRET-2", "SECRET-3", "KEYID-1"})
        EXPECT_FALSE(log.contains(secret)) << secret;
    // Values that are not secret are kept for whoever reads the log.
    EXPECT_TRUE(log.contains("--project-id P"));
    EXPECT_TRUE(log.contains("-u me -c /srv"));
}
