#include "Ssl.h"

#include "CommandChannel.h"
#include "Console.h"
#include "kelNetwork/GlobalConfig.h"
#include "kelNetwork/Ssl/SslCertificateCache.h"
#include "orvCommon/AppPath.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/Registry.h"
#include "orvCommon/NetworkSettings.h"

#include <QJsonArray>
#include <QLocale>
#include <QLoggingCategory>
#include <QSet>
#include <QTextStream>
#include <openssl/obj_mac.h>

Q_LOGGING_CATEGORY(lcSsl, "ORV.ssl")

namespace Orv::CLI::Ssl {

namespace Format = Orv::Common::Communication::Commands::Format;
using Kel::Network::Ssl::Certificate;

namespace {

// Start-up must stay quick whatever the service does: one short exchange.
constexpr int kStartupTimeoutMs = 3000;

QJsonObject exchange(const char* name, const QJsonObject& params, const QString& notRegistered,
                     int timeoutMs = 0)
{
    if (!Orv::Common::Communication::Manager::instance() ||
        !Orv::Common::Communication::Registry::isNamedCommand(QLatin1String(name)))
        throw notRegistered;
    return CommandChannel::blockingExchange(QLatin1String(name), params, timeoutMs);
}

QStringList storedPems(int timeoutMs)
{
    const QJsonObject data =
        exchange(Format::Ssl::ReadFromStorage::Name, {},
                 QStringLiteral("Commnunication command does not registered!"), timeoutMs);
    QStringList pems;
    const QJsonArray certificates =
        data.value(QLatin1String(Format::Ssl::ReadFromStorage::Reply::Certificates)).toArray();
    for (const QJsonValue& value : certificates)
        pems.append(value.toString());
    return pems;
}

QString fingerprint(const Certificate& certificate, Certificate::FingerprintKind kind)
{
    return QString::fromLatin1(certificate.fingerprint(kind).toHex(':').toUpper());
}

void writeNames(QTextStream& out, const Certificate& certificate,
                QString (Certificate::*name)(int) const)
{
    out << "\tCommon Name (CN):         " << (certificate.*name)(NID_commonName) << "\n";
    out << "\tOrganization (O):         " << (certificate.*name)(NID_organizationName) << "\n";
    out << "\tOrganizational Unit (OU): " << (certificate.*name)(NID_organizationalUnitName)
        << "\n";
}

QString shortDate(const QDateTime& time)
{
    return QLocale::system().toString(time.toLocalTime(), QLocale::ShortFormat);
}

} // namespace

void init()
{
    Kel::Network::GlobalConfig::instance()->setTrustedCertificatesPath(
        Orv::Defines::AppPath::to().trustedCertificatesFile());
    Orv::Common::applyNetworkSettings();
}

void updateSslCertificateCache()
{
    try {
        QSet<QByteArray> pems;
        const QStringList stored = storedPems(kStartupTimeoutMs);
        for (const QString& pem : stored)
            pems.insert(pem.toLatin1());
        Kel::Network::Ssl::SslCertificateCache::instance()->update(pems);
    } catch (const QString& message) {
        qCWarning(lcSsl).noquote() << "The trusted certificates were not read:" << message;
    }
}

QList<Certificate> listSslCertificates()
{
    QList<Certificate> certificates;
    const QStringList stored = storedPems(0);
    for (const QString& pem : stored)
        certificates.append(Certificate(pem.toLatin1(), Certificate::Pem));
    return certificates;
}

QList<Certificate> loadSslCertificate(const QString& endpoint)
{
    try {
        const QJsonObject data = exchange(
            Format::Ssl::GetPeerCertificate::Name,
            {{QLatin1String(Format::Ssl::GetPeerCertificate::Request::Endpoint), endpoint}},
            QStringLiteral("Commnunication command does not registered"));
        return Certificate::readAll(
            data.value(QLatin1String(Format::Ssl::Pem)).toString().toUtf8());
    } catch (const QString& message) {
        print(message + QStringLiteral("\n"));
        return {};
    }
}

bool addSslCertificateToStorage(const Certificate& certificate)
{
    try {
        exchange(Format::Ssl::AppendToStorage::Name,
                 {{QLatin1String(Format::Ssl::Pem),
                   QString::fromUtf8(certificate.to(Certificate::Pem))}},
                 QStringLiteral("Commnunication command does not registrate"));
        return true;
    } catch (const QString& message) {
        print(message + QStringLiteral("\n"));
        return false;
    }
}

QString showSslCertificate(const Certificate& certificate)
{
    QString text;
    QTextStream out(&text);
    out << "Subject Name\n";
    writeNames(out, certificate, &Certificate::subjectName);
    out << "Issue Name\n";
    writeNames(out, certificate, &Certificate::issuerName);
    out << "Valid\n";
    out << "\tfrom:                     " << shortDate(certificate.validFrom()) << "\n";
    out << "\tuntil:                    " << shortDate(certificate.expiresOn()) << "\n";
    out << "Certificate fingerprints\n";
    out << "\tMD5:                      " << fingerprint(certificate, Certificate::Md5) << "\n";
    out << "\tSHA-256:                  " << fingerprint(certificate, Certificate::Sha256) << "\n";
    out << "\tSHA-1:                    " << fingerprint(certificate, Certificate::Sha1) << "\n";
    out.flush();
    return text;
}

} // namespace Orv::CLI::Ssl
