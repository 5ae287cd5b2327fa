#include "LoopbackHttpsServer.h"
#include "StdoutCapture.h"
#include "TemporaryInstance.h"
#include "orvCommon/DefaultSettings.h"
#include "orvCommon/LocalSecret.h"
#include "orvCommon/ProxyRecord.h"
#include "orvCommon/SettingsKeys.h"
#include "settings/CommandSettingsView.h"
#include "settings/ContinuePlanSetting.h"
#include "settings/GroupGetSettings.h"
#include "settings/GroupSetSettings.h"
#include "settings/NeverSleepSetting.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpServer>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace Orv::CLI;
using Orv::DefaultSettings;

namespace {

const QByteArray kCantSave = "Can't save values\n";

struct Outcome
{
    int code = -1;
    // How the command ended: 'f' finished, 'e' error, '-' not at all.
    char ending = '-';
    QByteArray out;
};

Outcome runCommand(CommandBase& command, const QStringList& words)
{
    Outcome outcome;
    QObject::connect(&command, &CommandBase::finished, [&outcome] { outcome.ending = 'f'; });
    QObject::connect(&command, &CommandBase::error, [&outcome] { outcome.ending = 'e'; });
    StdoutCapture capture;
    outcome.code = command.process(words);
    outcome.out = capture.take();
    return outcome;
}

// Runs "config set|get <words>" in this process, on the current instance.
Outcome run(SettingCommandType type, const QStringList& words)
{
    QSharedPointer<CommandGroupBase> group;
    if (type == SettingCommandType::Set)
        group = QSharedPointer<SetSettingsGroup>::create();
    else
        group = QSharedPointer<GetSettingsGroup>::create();
    const QSharedPointer<CommandBase> setting = group->subItems().value(words.value(0));
    if (!setting) {
        ADD_FAILURE() << "no setting " << words.value(0).toStdString();
        return {};
    }
    return runCommand(*setting, words.mid(1));
}

Outcome run(SettingCommandType type, const QString& line)
{
    return run(type, line.split(QLatin1Char(' '), Qt::SkipEmptyParts));
}

Outcome set(const QString& line)
{
    return run(SettingCommandType::Set, line);
}

// The words as given, for values with spaces or empty values.
Outcome set(const QStringList& words)
{
    return run(SettingCommandType::Set, words);
}

QByteArray get(const QString& setting)
{
    const Outcome outcome = run(SettingCommandType::Get, setting);
    EXPECT_EQ(outcome.ending, 'f') << setting.toStdString();
    return outcome.out;
}

QString stored(const char* key)
{
    DefaultSettings::instance()->reload();
    return DefaultSettings::instance()->items().value(QLatin1String(key))->value();
}

void expectRefused(const Outcome& outcome, const QByteArray& printed)
{
    EXPECT_EQ(outcome.code, CommandBase::Started);
    EXPECT_EQ(outcome.ending, 'e');
    EXPECT_EQ(outcome.out, printed);
}

void expectAccepted(const Outcome& outcome, const QByteArray& printed = QByteArray())
{
    EXPECT_EQ(outcome.code, CommandBase::Started);
    EXPECT_EQ(outcome.ending, 'f');
    EXPECT_EQ(outcome.out, printed);
}

// Each case on a fresh, empty instance.
class SettingsCommands : public ::testing::Test
{
protected:
    TemporaryInstance instance;
};

} // namespace

TEST_F(SettingsCommands, SetWithoutWordsShowsHelpAndGetHasNoOptions)
{
    const Outcome help = set(QStringLiteral("threadcount"));
    EXPECT_EQ(help.code, CommandBase::HelpShownNoWords);
    EXPECT_EQ(help.ending, '-');
    EXPECT_TRUE(help.out.contains("-v, --value <value>  Thread count")) << help.out.constData();

    const Outcome getHelp = run(SettingCommandType::Get, QStringLiteral("threadcount -h"));
    EXPECT_EQ(getHelp.code, CommandBase::HelpShownNoWords);
    EXPECT_FALSE(getHelp.out.contains("--value"));

    const Outcome unknown = set(QStringLiteral("threadcount --frob 1"));
    EXPECT_EQ(unknown.code, CommandBase::Unknown);
    EXPECT_EQ(unknown.out, QByteArray("Unknown option 'frob'.\n"));
    const Outcome missing = set(QStringLiteral("threadcount -x"));
    EXPECT_EQ(missing.code, CommandBase::Unknown);
    EXPECT_FALSE(instance.readFile(QStringLiteral("config/defaultSettings.conf")).size());
}

TEST_F(SettingsCommands, CountsAcceptTheirRangesAndRefuseTheRest)
{
    const QByteArray wrongThreads = "Wrong thread count value specified\n" + kCantSave;
    for (const char* bad : {"0", "101", "-3", "abc"})
        expectRefused(set(QStringLiteral("threadcount -v %1").arg(QLatin1String(bad))),
                      wrongThreads);
    expectAccepted(set(QStringLiteral("threadcount -v 1")));
    expectAccepted(set(QStringLiteral("threadcount -value 100")));
    EXPECT_EQ(get(QStringLiteral("threadcount")), QByteArray("Thread count: 100"));

    // Negative queue sizes are refused before any write is tried, so without
    // the save message; text is refused with it.
    expectRefused(set(QStringLiteral("queuesize -v -1")), "Wrong queue size value specified\n");
    expectRefused(set(QStringLiteral("queuesize -v x")),
                  "Wrong queue size value specified\n" + kCantSave);
    EXPECT_EQ(get(QStringLiteral("queuesize")), QByteArray("Queue size: 2000"));
    expectAccepted(set(QStringLiteral("queuesize -v 0")));
    EXPECT_EQ(stored(Orv::SettingsKeys::GlacierQueueSize), QStringLiteral("0"));
}

TEST_F(SettingsCommands, SizesAreGivenInMegabytesAndKeptInBytes)
{
    const QByteArray wrongChunk = "Wrong chunk size value specified\n" + kCantSave;
    for (const char* bad : {"4", "5121", "abc", "-5"})
        expectRefused(set(QStringLiteral("chunksize -v %1").arg(QLatin1String(bad))), wrongChunk);
    expectAccepted(set(QStringLiteral("chunksize -v 5")));
    EXPECT_EQ(stored(Orv::SettingsKeys::ChunkSize), QStringLiteral("5242880"));
    expectAccepted(set(QStringLiteral("chunksize -v 5120")));
    EXPECT_EQ(stored(Orv::SettingsKeys::ChunkSize), QStringLiteral("5368709120"));
    EXPECT_EQ(get(QStringLiteral("chunksize")), QByteArray("Chunk size: 5120 MB\n"));

    expectAccepted(set(QStringLiteral("memoryusage -v 0")));
    EXPECT_EQ(stored(Orv::SettingsKeys::MemoryMaxUsage), QStringLiteral("0"));
    expectAccepted(set(QStringLiteral("memoryusage -v 3")));
    EXPECT_EQ(stored(Orv::SettingsKeys::MemoryMaxUsage), QStringLiteral("3145728"));
    EXPECT_EQ(get(QStringLiteral("memoryusage")), QByteArray("Memory usage: 3 MB\n"));
    const QByteArray wrongMemory = "Wrong memory usage value specified\n" + kCantSave;
    for (const char* bad : {"-1", "1.5", "17592186044416"})
        expectRefused(set(QStringLiteral("memoryusage -v %1").arg(QLatin1String(bad))),
                      wrongMemory);
    EXPECT_EQ(stored(Orv::SettingsKeys::MemoryMaxUsage), QStringLiteral("3145728"));
}

TEST_F(SettingsCommands, EmptyValuesShowTheUsageWithoutTheSaveMessage)
{
    expectRefused(set({QStringLiteral("threadcount"), QStringLiteral("-v"), QString()}),
                  "set threadcount -v value\n\t-v value: count of threads used in backup/restore. "
                  "Possible values: 1..100\n");
    expectRefused(
        set({QStringLiteral("bandwidthcloud"), QStringLiteral("-l"), QStringLiteral(" ")}),
        "orv option -set cloud -b limit\n\t-b Bandwidth for a plan. Possible values: "
        "u(unlimited), value in KB/sec\n");
    expectRefused(set({QStringLiteral("chunkpath"), QStringLiteral("-v"), QString()}),
                  "set chunkpath -v value\n\t-v value: Path for temporary chunks. default : "
                  "\"/tmp/Orv/Plans/\"\n");
}

TEST_F(SettingsCommands, BandwidthKeepsCloudAndLocalApart)
{
    expectAccepted(set(QStringLiteral("bandwidthlocal -l 300")));
    expectAccepted(set(QStringLiteral("bandwidthcloud -l UnLimited")));
    EXPECT_EQ(stored(Orv::SettingsKeys::CloudBandwidth), QStringLiteral("-1"));
    EXPECT_EQ(get(QStringLiteral("bandwidthcloud")), QByteArray("Cloud bandwidth: Unlimited\n"));
    EXPECT_EQ(get(QStringLiteral("bandwidthlocal")), QByteArray("Local bandwidth: 300 KB/sec\n"));
    expectAccepted(set(QStringLiteral("bandwidthlocal --limit u")));
    EXPECT_EQ(get(QStringLiteral("bandwidthlocal")), QByteArray("Local bandwidth: Unlimited\n"));
    expectRefused(set(QStringLiteral("bandwidthcloud -l 3x")),
                  "Wrong Bandwidth specified!\n" + kCantSave);
}

TEST_F(SettingsCommands, IgnoreSslTakesYesOrNoAndKeepsAFlag)
{
    expectRefused(set(QStringLiteral("ignoressl -v true")), "Wrong value specified\n");
    expectRefused(set(QStringLiteral("ignoressl -v Yes")), "Wrong value specified\n");
    expectAccepted(set(QStringLiteral("ignoressl -v yes")), "Ignore SSl certificates: yes\n");
    EXPECT_EQ(stored(Orv::SettingsKeys::IgnoreSSL), QStringLiteral("true"));
    expectAccepted(set(QStringLiteral("ignoressl -v no")), "Ignore SSl certificates: no\n");
    EXPECT_EQ(get(QStringLiteral("ignoressl")), QByteArray("Ignore SSl certificates: no\n"));
}

TEST_F(SettingsCommands, ChunkPathIsMadeOpenToAllAndNeverRunAsACommand)
{
    EXPECT_EQ(get(QStringLiteral("chunkpath")),
              QByteArray("Path for temporary chunks: /tmp/Orv/Plans/\n"));
    const QString odd = instance.path(QStringLiteral("chunks; touch injected"));
    expectAccepted(set({QStringLiteral("chunkpath"), QStringLiteral("-v"), odd}));
    struct stat st
    {
    };
    ASSERT_EQ(::stat(QFile::encodeName(odd).constData(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0777u);
    EXPECT_FALSE(QFileInfo::exists(QStringLiteral("injected")));
    EXPECT_EQ(get(QStringLiteral("chunkpath")), "Path for temporary chunks: " + odd.toUtf8());

    instance.writeFile(QStringLiteral("file"), "x");
    expectRefused(set(QStringLiteral("chunkpath -v ") + instance.path(QStringLiteral("file/sub"))),
                  "Can't create path " + kCantSave);
}

TEST_F(SettingsCommands, NotificationAddressesAreConfirmedBeforeTheyAreKept)
{
    auto useService = [this](const QString& url) {
        instance.writeFile(QStringLiteral("config/branding.conf"),
                           "[General]\nEmailConfirmationUrl=" + url.toUtf8() + "\n");
        TemporaryInstance::reloadAll();
        DefaultSettings::instance()->setIgnoreSSL(QStringLiteral("true"));
    };
    expectRefused(set(QStringLiteral("notification -m ann@example -u Ann")),
                  "Email is not valid!\n" + kCantSave);

    useService(QStringLiteral("https://127.0.0.1:%1/").arg(LoopbackHttpsServer::closedPort()));
    expectRefused(set(QStringLiteral("notification -m ann@example.com")),
                  "Cannot reach Orv email service, check connection and try again");
    EXPECT_EQ(stored(Orv::SettingsKeys::NotifEmail), QString());

    {
        LoopbackHttpsServer service(200, "{\"allowed\": true}");
        useService(service.url());
        expectAccepted(
            set({QStringLiteral("notification"), QStringLiteral("-m"),
                 QStringLiteral("ann@example.com, bob@example.org"), QStringLiteral("-u"),
                 QStringLiteral("Ann")}),
            "Confirmation email is sent to \"ann@example.com;bob@example.org\". Please check "
            "your email to confirm your registration. \nYou will not receive notification "
            "until you confirm your email address.\n");
    }
    EXPECT_EQ(get(QStringLiteral("notification")),
              QByteArray("Email     : ann@example.com;bob@example.org\nUser Name : Ann\n"));
    {
        LoopbackHttpsServer service(200, "{\"allowed\": false}");
        useService(service.url());
        expectAccepted(set(QStringLiteral("notification -m carl@example.net")));
    }
    EXPECT_EQ(stored(Orv::SettingsKeys::NotifEmail), QStringLiteral("carl@example.net"));
    // Leaving the name out clears it; leaving the address out keeps it.
    EXPECT_EQ(stored(Orv::SettingsKeys::NotifUserName), QString());
    expectAccepted(set(QStringLiteral("notification -u Dora")));
    EXPECT_EQ(stored(Orv::SettingsKeys::NotifEmail), QStringLiteral("carl@example.net"));
    EXPECT_EQ(stored(Orv::SettingsKeys::NotifUserName), QStringLiteral("Dora"));
}

TEST_F(SettingsCommands, ProxyPasswordIsKeptEncryptedAndNeverShown)
{
    EXPECT_EQ(get(QStringLiteral("proxy")),
              QByteArray("Proxy settings:\nState               : disabled\nAddress             : \n"
                         "Port                : \nUse authentication  : disabled\n"
                         "User                : \nPassword            : "));
    expectAccepted(set(QStringLiteral("proxy --use-proxy true --address proxy.lan --port 3128 "
                                      "--authentication true --user ann --password s3cret")));
    const QByteArray file = instance.readFile(QStringLiteral("config/proxy.conf"));
    EXPECT_FALSE(file.contains("s3cret")) << file.constData();
    const Orv::Common::ProxyRecord record = Orv::Common::proxySettings();
    EXPECT_TRUE(record.isPasswordEncrypted);
    EXPECT_EQ(record.plainPassword().value_or(QString()), QStringLiteral("s3cret"));
    EXPECT_EQ(get(QStringLiteral("proxy")),
              QByteArray("Proxy settings:\nState               : enabled\n"
                         "Address             : proxy.lan\nPort                : 3128\n"
                         "Use authentication  : enabled\nUser                : ann\n"
                         "Password            : ******\n"));

    // Refusals print their reason only, and leave the record alone.
    expectRefused(set(QStringLiteral("proxy --use-proxy true --port 65536")),
                  "Port must be in range [0 -65535].\n");
    expectRefused(set(QStringLiteral("proxy --use-proxy true --port 80a")),
                  "Wrong port specified.\n");
    expectRefused(set({QStringLiteral("proxy"), QStringLiteral("--use-proxy"),
                       QStringLiteral("true"), QStringLiteral("--user"), QString()}),
                  "User name must be specified.\n");
    const Outcome badSwitch = set(QStringLiteral("proxy --use-proxy yes"));
    EXPECT_EQ(badSwitch.code, CommandBase::Unknown);
    EXPECT_EQ(badSwitch.out, QByteArray("Options [ use-proxy ] must be 'true' or 'false'.\n"));
    EXPECT_EQ(instance.readFile(QStringLiteral("config/proxy.conf")), file);

    expectAccepted(set(QStringLiteral("proxy --use-proxy false")));
    const Orv::Common::ProxyRecord off = Orv::Common::proxySettings();
    EXPECT_FALSE(off.enabled());
    EXPECT_EQ(off.address, QStringLiteral("proxy.lan"));
    EXPECT_EQ(off.password, record.password);
}

TEST_F(SettingsCommands, WebAccessPortsMustDifferAndBeFree)
{
    const auto refused = [](const char* line, const QByteArray& message) {
        expectRefused(set(QLatin1String(line)), message + kCantSave);
    };
    refused("webaccess --http-port 8080 --https-port 8080", "The ports you specify are the same");
    refused("webaccess --http-port 43211",
            "The port you specify is the same as the https connection port");
    refused("webaccess --https-port 43210",
            "The port you specify is the same as the http connection port");
    refused("webaccess --http on", "-http parameter is invalid");
    refused("webaccess --https 1", "-https parameter is invalid");
    refused("webaccess --http-port 80x", "Port 80x is invalid");
    refused("webaccess --https-port 70000", "Port number 70000 is invalid");

    QTcpServer holder;
    ASSERT_TRUE(holder.listen(QHostAddress::Any, 0));
    const QByteArray held = QByteArray::number(holder.serverPort());
    refused(("webaccess --http-port " + held).constData(), "Port " + held + " is already in use");
    refused(("webaccess --https-port " + held).constData(),
            "Port number " + held + " is already in use");
    EXPECT_FALSE(instance.readFile(QStringLiteral("config/defaultSettings.conf")).size());

    holder.close();
    expectAccepted(set(QStringLiteral("webaccess --http true --http-port ") + QLatin1String(held)));
    EXPECT_EQ(get(QStringLiteral("webaccess")),
              "Web Interface:\n    http connection: localhost:" + held +
                  "\n        port:    " + held +
                  "\n        state:   enabled\n    https connection: localhost:43211\n"
                  "        port:    43211\n        state:   disabled\n");
}

TEST_F(SettingsCommands, SymlinkModesAreNamedInAnyCaseAndShownByDescription)
{
    EXPECT_EQ(
        get(QStringLiteral("symlinksbackup")),
        QByteArray("Symlinks backup mode:\n    Only the link itself is backed up, not what it "
                   "points to\n"));
    expectRefused(set(QStringLiteral("symlinksbackup -m Sideways")),
                  "Mode \"Sideways\" does not exist.\n" + kCantSave);
    expectAccepted(set(QStringLiteral("symlinksbackup --mode originalplaces")),
                   "Symlinks backup mode is set to: OriginalPlaces - What the link points to is "
                   "backed up in its own place\n");
    EXPECT_EQ(stored(Orv::SettingsKeys::SymlinksBackupMode), QStringLiteral("OriginalPlaces"));
    const Outcome list = set({QStringLiteral("symlinksbackup"), QStringLiteral("-m"), QString()});
    EXPECT_EQ(list.ending, 'e');
    EXPECT_TRUE(list.out.startsWith("set symlinksbackup -mode mode_name\nModes:\n  Ignore: "));
}

TEST_F(SettingsCommands, LoggingValidatesEveryOptionBeforeWritingAny)
{
    EXPECT_EQ(get(QStringLiteral("logging")),
              "Logging settings:\n    mode:     High\n    rotation: 30 day(s)\n    location: " +
                  instance.path(QStringLiteral("logs")).toUtf8() + "\n");
    expectRefused(set(QStringLiteral("logging --mode Chatty")),
                  "Mode \"Chatty\" does not exist.\n");
    expectRefused(set(QStringLiteral("logging --mode debug --rotation 0")),
                  "Rotation timeout must be greater than zero.\n");
    expectRefused(set(QStringLiteral("logging --rotation 3000000000")),
                  "Rotation timeout exceeds maximum value or is not a number.\n");
    const QString closed = instance.path(QStringLiteral("closed"));
    QDir().mkpath(closed);
    expectRefused(set(QStringLiteral("logging --mode low --path ") + closed),
                  "Logs directory must have read & write permissions for all users (chmod 777)\n");
    EXPECT_EQ(stored(Orv::SettingsKeys::LogLevel), QStringLiteral("High"));

    const QString logs = instance.path(QStringLiteral("newlogs"));
    expectAccepted(set(QStringLiteral("logging --mode debug --rotation 7 --path ") + logs),
                   "Logging mode is set to: Debug\nLogging rotation timeout is set to: 7 day(s)\n"
                   "Logging path is set to: " +
                       logs.toUtf8() + "\n");
    EXPECT_EQ(get(QStringLiteral("logging")),
              "Logging settings:\n    mode:     Debug\n    rotation: 7 day(s)\n    location: " +
                  logs.toUtf8() + "\n");
    const Outcome usage = set(QStringLiteral("logging extra"));
    EXPECT_EQ(usage.out,
              QByteArray("set logging -mode <Disable|Low|High (default)|Debug> -rotation <days> "
                         "-path <path>\n\t-mode <value>:  Possible values: Disable, Low, High "
                         "(default), Debug day(s)\n\t-rotation <days>: Number of days to purge log "
                         "files\n\t-path <value>: Path to logs\n"));
}

TEST_F(SettingsCommands, ConnectionRetriesArePositiveIntegers)
{
    expectRefused(set(QStringLiteral("connection --retry-count 0")),
                  "Connection retry count must be greater than zero.\n");
    expectRefused(set(QStringLiteral("connection --retry-count 2 --retry-interval 1e3")),
                  "Connection retry interval exceeds maximum value or is not a number.\n");
    EXPECT_EQ(stored(Orv::SettingsKeys::ConnectionRetryAttempts), QStringLiteral("5"));
    expectAccepted(set(QStringLiteral("connection --retry-interval 1500")),
                   "Connection retry interval is set to: 1500 (msec).\n");
    EXPECT_EQ(get(QStringLiteral("connection")),
              QByteArray("Connection settings:\n    retry count:     5\n    retry interval:  1500 "
                         "(msec)\n"));
}

TEST_F(SettingsCommands, RetentionPolicyRoundTripsThroughDaysAndConstants)
{
    const QByteArray off = "Retention policy settings:\nDelete version older  : false\n"
                           "Data type             : modification data\n"
                           "Keep last version     : true\nKeep versions         : false\n";
    EXPECT_EQ(get(QStringLiteral("retentionpolicy")), off);

    expectAccepted(set(QStringLiteral("retentionpolicy --delete-version-older true "
                                      "--delete-version-older-age 2 --delete-version-older-type "
                                      "Month")));
    EXPECT_EQ(stored(Orv::SettingsKeys::SerializationSupportRetentionTime),
              QStringLiteral("60.00:00:00"));
    // The age alone changes the stored rule; 14 days read back as 2 weeks.
    expectAccepted(
        set(QStringLiteral("retentionpolicy --delete-version-older-type Day "
                           "--delete-version-older-age 14 --delete-date-type backup-date "
                           "--keep-last-version false --keep-version true "
                           "--keep-version-number 4")));
    EXPECT_EQ(get(QStringLiteral("retentionpolicy")),
              QByteArray("Retention policy settings:\nDelete version older  : true\n"
                         "Age version           : 2\nAge interval          : Week\n"
                         "Data type             : backup data\nKeep last version     : false\n"
                         "Keep versions         : true\nNumber of versions    : 4\n"));

    expectAccepted(set(QStringLiteral("retentionpolicy --delete-version-older false --keep-version "
                                      "false --keep-last-version true --delete-date-type "
                                      "modification-date")));
    EXPECT_EQ(stored(Orv::SettingsKeys::SerializationSupportRetentionTime),
              QLatin1String(Orv::SerializationSupportRT_Disabled));
    EXPECT_EQ(stored(Orv::SettingsKeys::RetentionNumberOfVersions),
              QLatin1String(Orv::KeepNumberOfVersions_Disasbled));
    EXPECT_EQ(get(QStringLiteral("retentionpolicy")), off);
}

TEST_F(SettingsCommands, RetentionPolicyRefusesValuesWithoutTheirRule)
{
    const Outcome orphan = set(QStringLiteral("retentionpolicy --keep-version-number 3"));
    EXPECT_EQ(orphan.code, CommandBase::Unknown);
    EXPECT_EQ(orphan.out, QByteArray("Option [ keep-version ] true is mandatory to use with option "
                                     "[ keep-version-number ].\n"));
    const Outcome noAge = set(QStringLiteral("retentionpolicy --delete-version-older true"));
    EXPECT_EQ(noAge.out, QByteArray("Option [ delete-version-older-age ] is mandatory.\n"));

    const QString older =
        QStringLiteral("retentionpolicy --delete-version-older true "
                       "--delete-version-older-age %1 --delete-version-older-type %2");
    expectRefused(set(older.arg(QLatin1String("0"), QLatin1String("Day"))),
                  "Age versions number must be great then 1.\n");
    expectRefused(set(older.arg(QLatin1String("400000"), QLatin1String("Month"))),
                  "Age versions number must be great then 1.\n");
    expectRefused(set(older.arg(QLatin1String("3"), QLatin1String("week"))),
                  "Delete versions older type has wrong value\nPossible: \"Day\", \"Week\", "
                  "\"Month\"\n");
    expectRefused(set(older.arg(QLatin1String("3"), QLatin1String("Week")) +
                      QStringLiteral(" --delete-date-type today")),
                  "Delete data type must be 'backup-date' or 'modification-date'");
    expectRefused(
        set(QStringLiteral("retentionpolicy --keep-version true --keep-version-number 0")),
        "Number versions number must be great then 1.\n");
    EXPECT_FALSE(instance.readFile(QStringLiteral("config/defaultSettings.conf")).size());
}

TEST_F(SettingsCommands, UnwritableStoreEndsEverySettingInTheSaveMessage)
{
    QDir().mkpath(instance.path(QStringLiteral("config/defaultSettings.conf")));
    expectRefused(set(QStringLiteral("threadcount -v 4")), kCantSave);
    // Bandwidth reports success whatever the write gave.
    expectAccepted(set(QStringLiteral("bandwidthcloud -l 10")));
    expectRefused(set(QStringLiteral("connection --retry-count 4")), kCantSave);
    expectRefused(set(QStringLiteral("retentionpolicy --keep-last-version false")),
                  "Error can't create default purge settings! Check permission for folder " +
                      instance.path(QStringLiteral("config")).toUtf8() + "/.\n");
    EXPECT_EQ(get(QStringLiteral("threadcount")), QByteArray("Thread count: 5"));
}

TEST_F(SettingsCommands, ViewAndWakeUpSettingsStandApartFromTheGroups)
{
    CommandSettingsView view;
    const Outcome listing = runCommand(view, {});
    EXPECT_EQ(listing.ending, 'f');
    EXPECT_TRUE(
        listing.out.startsWith("Setting for get/set commands:\nbandwidthcloud - Bandwidth on "
                               "backup to cloud storages\nbandwidthlocal - "));
    EXPECT_TRUE(listing.out.endsWith("threadcount - Thread count\nwebaccess - Web Interface "
                                     "settings\n"));
    EXPECT_EQ(listing.out.count('\n'), 16);
    for (const QString& hidden :
         {QStringLiteral("view"), QStringLiteral("continueplan"), QStringLiteral("neversleep")})
        EXPECT_FALSE(SetSettingsGroup().subItems().contains(hidden));

    ContinuePlanSetting setContinue(SettingCommandType::Set);
    expectAccepted(runCommand(setContinue, {QStringLiteral("--enable"), QStringLiteral("true")}));
    NeverSleepSetting setNever(SettingCommandType::Set);
    const Outcome badSwitch =
        runCommand(setNever, {QStringLiteral("--enable"), QStringLiteral("1")});
    EXPECT_EQ(badSwitch.code, CommandBase::Unknown);
    ContinuePlanSetting getContinue(SettingCommandType::Get);
    EXPECT_EQ(runCommand(getContinue, {}).out,
              QByteArray("Continue plan on wake up option is enabled"));
    NeverSleepSetting getNever(SettingCommandType::Get);
    EXPECT_EQ(runCommand(getNever, {}).out,
              QByteArray("Never sleep on backup/restore option is disabled"));
}
