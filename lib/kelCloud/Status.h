#pragma once

#include "kelCloud/Operation.h"

#include <QByteArray>
#include <QString>

namespace Kel::Cloud {

// The outcome of one backend call: success, or the kind of failure with the
// reason worded for the administrator (the server's own words when it gave
// any).
struct Status
{
    Operation::Error error = Operation::Error::None;
    QString message;
    // PEM text of the server's chain when error is UntrustedCertificate.
    QByteArray peerCertificates;

    bool ok() const { return error == Operation::Error::None; }

    static Status success() { return {}; }
    static Status failure(Operation::Error error, const QString& message)
    {
        Status status;
        status.error = error;
        status.message = message;
        return status;
    }
};

} // namespace Kel::Cloud
