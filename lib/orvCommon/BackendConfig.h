#pragma once

#include <QVariantMap>

namespace Orv::Common {

// What an account configuration needs besides its stored values when it goes
// to a storage backend: the client's proxy (for SFTP only when the account's
// UseProxy is on) and the file that SFTP host keys are recorded in and
// checked against. Added right before use, never stored with the account.
class BackendConfig
{
public:
    static QVariantMap prepare(QVariantMap config);
};

} // namespace Orv::Common
