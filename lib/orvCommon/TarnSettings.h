#pragma once

#include "orvCommon/AppPath.h"

#include <QString>

namespace Orv::Defines::Tarn {

// The managed service's record for this client (config/tarn.conf):
//   [Tarn]
//   prefix=<backup prefix assigned by the managed service>
struct TarnSettingsData
{
    QString prefix;
};

class TarnSettings
{
public:
    explicit TarnSettings(const AppPath& path) : m_path(path) {}
    TarnSettingsData get() const;

private:
    const AppPath& m_path;
};

} // namespace Orv::Defines::Tarn
