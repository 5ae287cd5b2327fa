#include "service/config/PassphraseSeal.h"

#include "kelStreams/Cipher.h"
#include "kelStreams/Hash.h"

namespace Orv::Service {

namespace {

const QString kPrefix = QStringLiteral("pass1:");
const QString kKdf = QStringLiteral("scrypt");
constexpr int kKeySize = 32;
constexpr int kSaltSize = 16;
// Every file holds this, sealed: a wrong passphrase is told apart from a
// damaged secret before anything is imported.
const QString kCheckText = QStringLiteral("orv configuration passphrase check");
const QString kCheckContext = QStringLiteral("check");
// Above what a file may ask for: a crafted file must not make the service
// spend gigabytes deriving a key.
constexpr quint64 kMaxN = quint64(1) << 20;
constexpr quint32 kMaxR = 16;
constexpr quint32 kMaxP = 4;

} // namespace

PassphraseSeal::PassphraseSeal(const QByteArray& key, const QByteArray& salt, quint64 n, quint32 r,
                               quint32 p)
    : m_key(key), m_salt(salt), m_n(n), m_r(r), m_p(p)
{
}

std::optional<PassphraseSeal> PassphraseSeal::create(const QString& passphrase, QString* error)
{
    if (passphrase.isEmpty()) {
        *error = QStringLiteral("A passphrase is needed to protect the secrets in the file "
                                "(or export with --remove-password true)");
        return std::nullopt;
    }
    const Kel::Streams::ScryptParameters parameters;
    const QByteArray salt = Kel::Streams::randomBytes(kSaltSize);
    const QByteArray key = Kel::Streams::deriveKey(passphrase.toUtf8(), salt, parameters, kKeySize);
    if (key.isEmpty()) {
        *error = QStringLiteral("Cannot derive a key from the passphrase");
        return std::nullopt;
    }
    return PassphraseSeal(key, salt, parameters.n, parameters.r, parameters.p);
}

std::optional<PassphraseSeal> PassphraseSeal::open(const QJsonObject& protection,
                                                   const QString& passphrase, QString* error)
{
    const quint64 n = quint64(protection.value(QStringLiteral("n")).toDouble());
    const quint32 r = quint32(protection.value(QStringLiteral("r")).toInt());
    const quint32 p = quint32(protection.value(QStringLiteral("p")).toInt());
    const QByteArray salt =
        QByteArray::fromBase64(protection.value(QStringLiteral("salt")).toString().toLatin1());
    if (protection.value(QStringLiteral("kdf")).toString() != kKdf || n > kMaxN || r > kMaxR ||
        p > kMaxP || salt.isEmpty()) {
        *error = QStringLiteral("its secrets are protected in a way this version does not know");
        return std::nullopt;
    }
    if (passphrase.isEmpty()) {
        *error = QStringLiteral("it holds secrets protected by a passphrase: give the passphrase "
                                "it was exported with");
        return std::nullopt;
    }
    const QByteArray key = Kel::Streams::deriveKey(passphrase.toUtf8(), salt, {n, r, p}, kKeySize);
    if (key.isEmpty()) {
        *error = QStringLiteral("its secrets are protected in a way this version does not know");
        return std::nullopt;
    }
    PassphraseSeal seal(key, salt, n, r, p);
    if (seal.unseal(protection.value(QStringLiteral("check")).toString(), kCheckContext) !=
        kCheckText) {
        *error = QStringLiteral("the passphrase does not open its secrets");
        return std::nullopt;
    }
    return seal;
}

QJsonObject PassphraseSeal::protection() const
{
    return {{QStringLiteral("kdf"), kKdf},
            {QStringLiteral("n"), double(m_n)},
            {QStringLiteral("r"), int(m_r)},
            {QStringLiteral("p"), int(m_p)},
            {QStringLiteral("salt"), QString::fromLatin1(m_salt.toBase64())},
            {QStringLiteral("check"), seal(kCheckText, kCheckContext)}};
}

QString PassphraseSeal::seal(const QString& plain, const QString& context) const
{
    Kel::Streams::Cipher cipher(m_key);
    const QByteArray data = plain.toUtf8();
    QByteArray sealed;
    if (!cipher.seal(data.constData(), std::size_t(data.size()), &sealed, context.toUtf8()))
        return {};
    return kPrefix + QString::fromLatin1(sealed.toBase64());
}

std::optional<QString> PassphraseSeal::unseal(const QString& sealed, const QString& context) const
{
    if (!isSealed(sealed))
        return std::nullopt;
    const QByteArray data = QByteArray::fromBase64(sealed.mid(kPrefix.size()).toLatin1());
    Kel::Streams::Cipher cipher(m_key);
    QByteArray plain;
    if (!cipher.open(data.constData(), std::size_t(data.size()), &plain, context.toUtf8()))
        return std::nullopt;
    return QString::fromUtf8(plain);
}

bool PassphraseSeal::isSealed(const QString& text)
{
    return text.startsWith(kPrefix);
}

} // namespace Orv::Service
