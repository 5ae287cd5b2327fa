#pragma once

#include <QString>
#include <QStringList>

namespace Orv::Common {

// The provider's e-mail confirmation service: notification addresses must be
// confirmed by their owners before the client sends them anything. The service
// is asked whether the addresses are allowed; for new ones it answers yes and
// sends each a confirmation request.
//
// Request: POST to the branding's confirmation URL, a JSON object
//   {"user_name": "...", "emails": ["a@example.com", ...]}
// Answer: 200 with {"allowed": true|false}. Anything else is no answer.
class EmailAddressesConfirmed
{
public:
    // addresses: one or more, separated by ";". Blocks for the exchange.
    bool isAllowed(const QString& userName, const QString& addresses);
    // 200 when the service answered well-formed; otherwise the HTTP status of a
    // refusal, or 0 when no usable answer came.
    int responseStatus() const { return m_status; }
    // Why no usable answer came, for the log.
    QString errorString() const { return m_error; }

private:
    int m_status = 0;
    QString m_error;
};

} // namespace Orv::Common
