#pragma once

namespace Orv::Service {

// Prepares the process for the client's work: files it creates are private
// to its user, and the instance folders it writes into exist.
void init_environment();

// Applies the client's proxy record, when the installation has one, as the
// application-wide proxy of the network classes.
void init_proxy();

} // namespace Orv::Service
