#pragma once

#include <QByteArray>
#include <functional>

namespace Orv::Service {

// Where the answer to one request goes: one encoded frame, written to the
// connection the request came from, or dropped once that connection is gone.
using ReplySink = std::function<void(const QByteArray& frame)>;

} // namespace Orv::Service
