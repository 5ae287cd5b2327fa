#pragma once

#include <QByteArray>
#include <QString>

namespace OrvTest {

// A certificate authority and a server certificate it signed, made fresh for
// a test: the server's is valid for 127.0.0.1 and localhost for one day.
struct TestCertificates
{
    QByteArray caPem;
    QByteArray serverPem;
    QByteArray serverKeyPem;

    // The chain a server presents: its own certificate, then the authority's.
    QByteArray chainPem() const { return serverPem + caPem; }

    static TestCertificates make(const QString& commonName = QStringLiteral("127.0.0.1"));
};

} // namespace OrvTest
