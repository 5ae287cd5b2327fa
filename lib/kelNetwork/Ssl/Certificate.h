#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <memory>

typedef struct x509_st X509;

namespace Kel::Network::Ssl {

// One X.509 certificate, immutable once read. Copies share the same OpenSSL
// object. A certificate that could not be read is null and answers empty
// values.
class Certificate
{
public:
    enum Format
    {
        Pem,
        Der
    };

    enum FingerprintKind
    {
        Md5,
        Sha1,
        Sha256
    };

    Certificate() = default;
    Certificate(const QByteArray& data, Format format = Pem);
    // Takes a reference of its own; the caller keeps its.
    static Certificate fromX509(X509* certificate);

    // Reads the first certificate of the data; false (and null) when there is
    // none.
    bool read(const QByteArray& data, Format format = Pem);
    // Every certificate of a PEM text, in the order they appear; text between
    // them is skipped, a damaged block ends the list.
    static QList<Certificate> readAll(const QByteArray& pem);

    bool isNull() const { return !m_x509; }
    QByteArray to(Format format = Pem) const;

    // The first entry of the name with the OpenSSL identifier (NID_commonName,
    // NID_organizationName, ...), as UTF-8 text; empty when there is none.
    QString subjectName(int nid) const;
    QString issuerName(int nid) const;
    // In UTC.
    QDateTime validFrom() const;
    QDateTime expiresOn() const;
    // The raw digest of the DER form; callers format it as they show it.
    QByteArray fingerprint(FingerprintKind kind) const;

    // Borrowed; valid as long as this object.
    X509* handle() const { return m_x509.get(); }

    bool operator==(const Certificate& other) const;
    bool operator!=(const Certificate& other) const { return !(*this == other); }

private:
    std::shared_ptr<X509> m_x509;
};

} // namespace Kel::Network::Ssl
