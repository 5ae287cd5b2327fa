#include "support/TestCertificates.h"

#include <memory>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace OrvTest {

namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Cert = std::unique_ptr<X509, decltype(&X509_free)>;

QByteArray pemOf(X509* certificate)
{
    std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new(BIO_s_mem()), BIO_free);
    PEM_write_bio_X509(bio.get(), certificate);
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &data);
    return QByteArray(data, static_cast<int>(length));
}

QByteArray pemOf(EVP_PKEY* key)
{
    std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new(BIO_s_mem()), BIO_free);
    PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr);
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &data);
    return QByteArray(data, static_cast<int>(length));
}

void addExtension(X509* certificate, X509* issuer, int nid, const char* value)
{
    X509V3_CTX context{};
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

Cert makeCertificate(EVP_PKEY* key, const QByteArray& commonName, const QByteArray& organisation,
                     long serial)
{
    Cert certificate(X509_new(), X509_free);
    X509_set_version(certificate.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), serial);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -60);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 24 * 3600);
    X509_set_pubkey(certificate.get(), key);
    X509_NAME* name = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(commonName.constData()), -1,
                               -1, 0);
    X509_NAME_add_entry_by_txt(name, "O", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(organisation.constData()), -1,
                               -1, 0);
    X509_NAME_add_entry_by_txt(name, "OU", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>("Storage tests"), -1, -1, 0);
    return certificate;
}

} // namespace

TestCertificates TestCertificates::make(const QString& commonName)
{
    const Key caKey(EVP_EC_gen("P-256"), EVP_PKEY_free);
    const Cert ca = makeCertificate(caKey.get(), "Orv Test Authority", "Orv Test CA", 1);
    X509_set_issuer_name(ca.get(), X509_get_subject_name(ca.get()));
    addExtension(ca.get(), ca.get(), NID_basic_constraints, "critical,CA:TRUE");
    addExtension(ca.get(), ca.get(), NID_key_usage, "critical,keyCertSign,cRLSign");
    X509_sign(ca.get(), caKey.get(), EVP_sha256());

    const Key serverKey(EVP_EC_gen("P-256"), EVP_PKEY_free);
    const Cert server =
        makeCertificate(serverKey.get(), commonName.toUtf8(), "Orv Test Storage", 2);
    X509_set_issuer_name(server.get(), X509_get_subject_name(ca.get()));
    addExtension(server.get(), ca.get(), NID_basic_constraints, "CA:FALSE");
    addExtension(server.get(), ca.get(), NID_subject_alt_name, "IP:127.0.0.1,DNS:localhost");
    addExtension(server.get(), ca.get(), NID_ext_key_usage, "serverAuth");
    X509_sign(server.get(), caKey.get(), EVP_sha256());

    TestCertificates result;
    result.caPem = pemOf(ca.get());
    result.serverPem = pemOf(server.get());
    result.serverKeyPem = pemOf(serverKey.get());
    return result;
}

} // namespace OrvTest
