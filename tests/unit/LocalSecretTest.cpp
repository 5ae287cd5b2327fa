#include "orvCommon/LocalSecret.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sys/stat.h>

using Orv::Common::LocalSecret;

namespace {

QString keyIn(const QTemporaryDir& dir)
{
    return dir.filePath(QStringLiteral("config/local.key"));
}

mode_t modeOf(const QString& path)
{
    struct stat st
    {
    };
    ::stat(QFile::encodeName(path).constData(), &st);
    return st.st_mode & 07777;
}

} // namespace

TEST(LocalSecret, RoundTripsWithAPrivateKeyMadeOnce)
{
    QTemporaryDir dir;
    const QString key = keyIn(dir);
    EXPECT_FALSE(LocalSecret(key).decrypt(QStringLiteral("v1:AAAA")).has_value())
        << "no key, nothing to decrypt with, and none is made for it";
    EXPECT_FALSE(QFileInfo::exists(key));

    const QByteArray secret("p\xc3\xa4ss word\0with nul", 19);
    const QString sealed = LocalSecret(key).encrypt(secret);
    ASSERT_TRUE(LocalSecret::isEncrypted(sealed)) << sealed.toStdString();
    EXPECT_FALSE(sealed.contains(QLatin1String("ss word")));
    EXPECT_EQ(modeOf(key), mode_t(0600));
    EXPECT_EQ(QFileInfo(key).size(), 32);

    QFile file(key);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray keyBytes = file.readAll();
    file.close();
    // Another user of the same key file (another process) reads it back, and
    // encrypting again neither changes the key nor repeats the text.
    const QString again = LocalSecret(key).encrypt(secret);
    EXPECT_NE(again, sealed);
    EXPECT_EQ(LocalSecret(key).decrypt(sealed).value_or(QByteArray()), secret);
    EXPECT_EQ(LocalSecret(key).decrypt(again).value_or(QByteArray()), secret);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), keyBytes);
    EXPECT_EQ(LocalSecret(key).decrypt(LocalSecret(key).encrypt({})).value_or("x"), QByteArray());
}

TEST(LocalSecret, RefusesTamperedForeignAndMalformedTexts)
{
    QTemporaryDir dir;
    QTemporaryDir other;
    const LocalSecret mine(keyIn(dir));
    const QString sealed = mine.encrypt("secret");
    ASSERT_FALSE(sealed.isEmpty());

    QByteArray raw = QByteArray::fromBase64(sealed.mid(3).toLatin1());
    raw[raw.size() / 2] = static_cast<char>(raw[raw.size() / 2] ^ 0x01);
    const QString tampered = QStringLiteral("v1:") + QString::fromLatin1(raw.toBase64());
    LocalSecret(keyIn(other)).encrypt("make the other key");

    for (const QString& text :
         {tampered, QStringLiteral("secret"), QStringLiteral("v1:"),
          QStringLiteral("v1:%%%notbase64"), QStringLiteral("v2:") + sealed.mid(3)}) {
        QString error;
        EXPECT_FALSE(mine.decrypt(text, &error).has_value()) << text.toStdString();
        EXPECT_FALSE(error.isEmpty());
    }
    QString error;
    EXPECT_FALSE(LocalSecret(keyIn(other)).decrypt(sealed, &error).has_value());
    EXPECT_EQ(error, QStringLiteral("the secret cannot be decrypted with this installation's key"));
}

TEST(LocalSecret, DamagedKeyFileIsReportedAndNeverReplaced)
{
    QTemporaryDir dir;
    const QString key = keyIn(dir);
    const QString sealed = LocalSecret(key).encrypt("secret");
    QFile file(key);
    ASSERT_TRUE(file.open(QIODevice::Append));
    file.write("x");
    file.close();

    QString error;
    EXPECT_TRUE(LocalSecret(key).encrypt("more", &error).isEmpty());
    EXPECT_EQ(error, QStringLiteral("the installation's key file is damaged"));
    EXPECT_FALSE(LocalSecret(key).decrypt(sealed).has_value());
    EXPECT_EQ(QFileInfo(key).size(), 33);
}
