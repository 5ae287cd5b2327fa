#pragma once

namespace Orv::Common {

// Hands the settings store's network choices (whether TLS errors are ignored,
// how often and how far apart a refused request is retried) to the network
// library's global configuration, which every connection reads. A value the
// store holds in a form that is not usable leaves the store's default.
void applyNetworkSettings();

} // namespace Orv::Common
