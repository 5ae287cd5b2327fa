#include "kelNetwork/Ssl/Certificate.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

namespace Kel::Network::Ssl {

namespace {

std::shared_ptr<X509> own(X509* certificate)
{
    return std::shared_ptr<X509>(certificate, X509_free);
}

std::unique_ptr<BIO, decltype(&BIO_free)> memoryBio(const QByteArray& data)
{
    return {BIO_new_mem_buf(data.constData(), data.size()), BIO_free};
}

QString nameEntry(const X509_NAME* name, int nid)
{
    if (!name)
        return {};
    const int index = X509_NAME_get_index_by_NID(name, nid, -1);
    if (index < 0)
        return {};
    const ASN1_STRING* value = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, index));
    unsigned char* utf8 = nullptr;
    const int length = ASN1_STRING_to_UTF8(&utf8, value);
    if (length < 0)
        return {};
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(utf8), length);
    OPENSSL_free(utf8);
    return text;
}

QDateTime toDateTime(const ASN1_TIME* time)
{
    tm parts{};
    if (!time || ASN1_TIME_to_tm(time, &parts) != 1)
        return {};
    return QDateTime(QDate(parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday),
                     QTime(parts.tm_hour, parts.tm_min, parts.tm_sec), Qt::UTC);
}

} // namespace

Certificate::Certificate(const QByteArray& data, Format format)
{
    read(data, format);
}

Certificate Certificate::fromX509(X509* certificate)
{
    Certificate result;
    if (certificate && X509_up_ref(certificate) == 1)
        result.m_x509 = own(certificate);
    return result;
}

bool Certificate::read(const QByteArray& data, Format format)
{
    m_x509.reset();
    if (data.isEmpty())
        return false;
    auto bio = memoryBio(data);
    X509* certificate = format == Pem ? PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr)
                                      : d2i_X509_bio(bio.get(), nullptr);
    ERR_clear_error();
    if (!certificate)
        return false;
    m_x509 = own(certificate);
    return true;
}

QList<Certificate> Certificate::readAll(const QByteArray& pem)
{
    QList<Certificate> certificates;
    if (pem.isEmpty())
        return certificates;
    auto bio = memoryBio(pem);
    while (X509* certificate = PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr)) {
        Certificate next;
        next.m_x509 = own(certificate);
        certificates.append(next);
    }
    // The loop ends on "no more PEM blocks"; that is not an error to keep.
    ERR_clear_error();
    return certificates;
}

QByteArray Certificate::to(Format format) const
{
    if (!m_x509)
        return {};
    std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new(BIO_s_mem()), BIO_free);
    const int written = format == Pem ? PEM_write_bio_X509(bio.get(), m_x509.get())
                                      : i2d_X509_bio(bio.get(), m_x509.get());
    if (written != 1)
        return {};
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &data);
    return QByteArray(data, static_cast<int>(length));
}

QString Certificate::subjectName(int nid) const
{
    return m_x509 ? nameEntry(X509_get_subject_name(m_x509.get()), nid) : QString();
}

QString Certificate::issuerName(int nid) const
{
    return m_x509 ? nameEntry(X509_get_issuer_name(m_x509.get()), nid) : QString();
}

QDateTime Certificate::validFrom() const
{
    return m_x509 ? toDateTime(X509_get0_notBefore(m_x509.get())) : QDateTime();
}

QDateTime Certificate::expiresOn() const
{
    return m_x509 ? toDateTime(X509_get0_notAfter(m_x509.get())) : QDateTime();
}

QByteArray Certificate::fingerprint(FingerprintKind kind) const
{
    if (!m_x509)
        return {};
    const EVP_MD* digest = kind == Md5 ? EVP_md5() : kind == Sha1 ? EVP_sha1() : EVP_sha256();
    unsigned char buffer[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (X509_digest(m_x509.get(), digest, buffer, &length) != 1)
        return {};
    return QByteArray(reinterpret_cast<const char*>(buffer), static_cast<int>(length));
}

bool Certificate::operator==(const Certificate& other) const
{
    if (!m_x509 || !other.m_x509)
        return !m_x509 && !other.m_x509;
    return X509_cmp(m_x509.get(), other.m_x509.get()) == 0;
}

} // namespace Kel::Network::Ssl
