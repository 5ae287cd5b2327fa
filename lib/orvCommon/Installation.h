#pragma once

#include "kelCore/LogManager.h"

#include <QString>

namespace Orv::Defines {

// The installation record, config/orvclient.conf:
//   [Installation]
//   edition=standalone|managed
//   product_id=<text>
// A missing or unreadable file means a standalone installation.
class Installation
{
public:
    enum class Edition
    {
        Standalone,
        Managed
    };

    static const Installation& current();
    static void reload();

    Edition edition() const { return m_edition; }
    QString productId() const { return m_productId; }

private:
    Installation();
    Edition m_edition = Edition::Standalone;
    QString m_productId;
};

} // namespace Orv::Defines

namespace SHARED::defines::common {

bool is_standalone();
bool is_tarn();
// True when ORV_DEBUG is set to a non-empty value other than "0".
bool isDebug();
// The client's log level: the store's "LogLevel" value, High when unset.
Kel::LogLevel logLevel();
// Keeps the level in the settings store, where both programs read it.
bool setLogLevel(Kel::LogLevel level);
// Days after which rotated log files are removed ("Logs Rotate TimeOut").
int logRotateDays();
// The folder of the client's log files ("LogPath"), the instance's logs
// folder when unset.
QString logPath();

} // namespace SHARED::defines::common
