#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QTemporaryDir>
#include <arpa/inet.h>
#include <atomic>
#include <csignal>
#include <mutex>
#include <netinet/in.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

// An HTTPS server on 127.0.0.1 that answers every request with one canned
// reply, under a self-signed certificate made for it (its PEM file is
// caFile()). It serves on its own thread, so blocking clients can call it.
class LoopbackHttpsServer
{
public:
    LoopbackHttpsServer(int status, QByteArray body) : m_status(status), m_body(std::move(body))
    {
        makeCertificate();
        m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        ::bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof(address));
        ::listen(m_listener, 8);
        ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length);
        m_port = ntohs(address.sin_port);
        // A client that hangs up mid-reply (a refused download) must not
        // kill the test process: the write then fails with EPIPE instead.
        std::signal(SIGPIPE, SIG_IGN);
        m_thread = std::thread([this] { serve(); });
    }

    ~LoopbackHttpsServer()
    {
        m_stop = true;
        m_thread.join();
        ::close(m_listener);
        SSL_CTX_free(m_context);
    }

    LoopbackHttpsServer(const LoopbackHttpsServer&) = delete;
    LoopbackHttpsServer& operator=(const LoopbackHttpsServer&) = delete;

    QString url() const { return QStringLiteral("https://127.0.0.1:%1/confirm").arg(m_port); }
    QString caFile() const { return m_dir.filePath(QStringLiteral("cert.pem")); }
    // The last request as received: head and body.
    QByteArray lastRequest() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_lastRequest;
    }

    // A loopback port nobody listens on.
    static quint16 closedPort()
    {
        const int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        ::bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof(address));
        ::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
        ::close(probe);
        return ntohs(address.sin_port);
    }

private:
    void makeCertificate()
    {
        EVP_PKEY* key = EVP_EC_gen("P-256");
        X509* certificate = X509_new();
        X509_set_version(certificate, 2);
        ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
        X509_gmtime_adj(X509_getm_notBefore(certificate), -60);
        X509_gmtime_adj(X509_getm_notAfter(certificate), 3600);
        X509_set_pubkey(certificate, key);
        X509_NAME* name = X509_get_subject_name(certificate);
        X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                                   reinterpret_cast<const unsigned char*>("127.0.0.1"), -1, -1, 0);
        X509_set_issuer_name(certificate, name);
        X509V3_CTX v3{};
        X509V3_set_ctx(&v3, certificate, certificate, nullptr, nullptr, 0);
        X509_EXTENSION* san =
            X509V3_EXT_conf_nid(nullptr, &v3, NID_subject_alt_name, "IP:127.0.0.1");
        X509_add_ext(certificate, san, -1);
        X509_EXTENSION_free(san);
        X509_sign(certificate, key, EVP_sha256());

        FILE* pem = ::fopen(QFile::encodeName(caFile()).constData(), "w");
        PEM_write_X509(pem, certificate);
        ::fclose(pem);

        m_context = SSL_CTX_new(TLS_server_method());
        SSL_CTX_use_certificate(m_context, certificate);
        SSL_CTX_use_PrivateKey(m_context, key);
        X509_free(certificate);
        EVP_PKEY_free(key);
    }

    void serve()
    {
        while (!m_stop) {
            pollfd waiting{m_listener, POLLIN, 0};
            if (::poll(&waiting, 1, 50) <= 0)
                continue;
            const int client = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (client < 0)
                continue;
            const timeval limit{5, 0};
            ::setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
            SSL* tls = SSL_new(m_context);
            SSL_set_fd(tls, client);
            if (SSL_accept(tls) == 1)
                answer(tls);
            ERR_clear_error();
            SSL_free(tls);
            ::close(client);
        }
    }

    void answer(SSL* tls)
    {
        QByteArray request;
        char buffer[4096];
        int headEnd = -1;
        while (headEnd < 0 || request.size() < headEnd + 4 + contentLength(request)) {
            const int got = SSL_read(tls, buffer, sizeof(buffer));
            if (got <= 0)
                return;
            request.append(buffer, got);
            headEnd = request.indexOf("\r\n\r\n");
        }
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_lastRequest = request;
        }
        const QByteArray reply = "HTTP/1.1 " + QByteArray::number(m_status) +
                                 " Canned\r\nContent-Type: application/json\r\nContent-Length: " +
                                 QByteArray::number(m_body.size()) +
                                 "\r\nConnection: close\r\n\r\n" + m_body;
        SSL_write(tls, reply.constData(), reply.size());
        SSL_shutdown(tls);
    }

    static int contentLength(const QByteArray& request)
    {
        const QByteArray lower = request.toLower();
        const int at = lower.indexOf("content-length:");
        if (at < 0)
            return 0;
        return lower.mid(at + 15, lower.indexOf("\r\n", at) - at - 15).trimmed().toInt();
    }

    int m_status;
    QByteArray m_body;
    QTemporaryDir m_dir;
    SSL_CTX* m_context = nullptr;
    int m_listener = -1;
    quint16 m_port = 0;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
    mutable std::mutex m_mutex;
    QByteArray m_lastRequest;
};
