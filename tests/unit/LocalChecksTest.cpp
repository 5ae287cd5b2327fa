#include "kelCore/LogLocation.h"
#include "kelNetwork/LocalPort.h"
#include "orvCommon/EmailValidator.h"

#include <QDir>
#include <QFile>
#include <QTcpServer>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sys/stat.h>

using Kel::LogLocation;
using Kel::Network::LocalPort;
using Orv::Common::EmailValidator;

TEST(LocalPort, APortHeldOpenIsInUseUntilReleased)
{
    QTcpServer holder;
    ASSERT_TRUE(holder.listen(QHostAddress::LocalHost, 0));
    const int port = holder.serverPort();
    EXPECT_EQ(LocalPort::check(port), LocalPort::State::InUse);
    holder.close();
    EXPECT_EQ(LocalPort::check(port), LocalPort::State::Free);
    for (int bad : {0, -1, 65536})
        EXPECT_EQ(LocalPort::check(bad), LocalPort::State::Invalid) << bad;
}

TEST(LogLocation, FourOutcomes)
{
    QTemporaryDir dir;
    const QString fresh = dir.filePath(QStringLiteral("a/b/logs"));
    EXPECT_EQ(LogLocation::check(fresh), LogLocation::Status::NoError);
    EXPECT_TRUE(QFileInfo(fresh).isDir());

    const QString closed = dir.filePath(QStringLiteral("closed"));
    QDir().mkpath(closed);
    ::chmod(QFile::encodeName(closed).constData(), 0755);
    EXPECT_EQ(LogLocation::check(closed), LogLocation::Status::NoPermissions);

    const QString file = dir.filePath(QStringLiteral("file"));
    QFile(file).open(QIODevice::WriteOnly);
    EXPECT_EQ(LogLocation::check(file + QStringLiteral("/below")),
              LogLocation::Status::CannotCreate);
    EXPECT_EQ(LogLocation::check(file), LogLocation::Status::CannotCreate);
    EXPECT_EQ(LogLocation::check(QStringLiteral("  ")), LogLocation::Status::EmptyPath);
    EXPECT_EQ(LogLocation::message(LogLocation::Status::NoPermissions),
              QStringLiteral("Logs directory must have read & write permissions for all users "
                             "(chmod 777)"));
}

TEST(EmailValidator, ListsOfAddressesAreAcceptableOnlyWhenEveryOneIs)
{
    using State = EmailValidator::State;
    const std::pair<const char*, State> cases[] = {
        {"ann@example.com", State::Acceptable},
        {"a.b+tag@mail.example.co.uk", State::Acceptable},
        {" ann@example.com , bob@example.org; ", State::Acceptable},
        {"", State::Intermediate},
        {" ;, ", State::Intermediate},
        {"ann@example.com, bob", State::Invalid},
        {"ann@localhost", State::Invalid},
        {"ann@exa_mple.com", State::Invalid},
        {"ann@-example.com", State::Invalid},
        {".ann@example.com", State::Invalid},
        {"an..n@example.com", State::Invalid},
        {"an n@example.com", State::Invalid},
        {"@example.com", State::Invalid},
        {"ann@example.c0m", State::Invalid},
    };
    for (const auto& [text, state] : cases)
        EXPECT_EQ(EmailValidator::validate(QString::fromUtf8(text)), state) << text;
    EXPECT_FALSE(
        EmailValidator::isAddress(QString(65, QLatin1Char('a')) + QStringLiteral("@example.com")));
}
