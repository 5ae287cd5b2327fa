#pragma once

#include <QString>

namespace Orv::CLI::Passphrase {

// The passphrase that protects the secrets of an exported configuration. On
// a terminal it is asked for without echo (twice when it is being chosen, so
// that a typing error does not lock the file); otherwise it is the first line
// of standard input, so that scripts can pipe it in. It never appears on the
// command line, in the output or in the log.
//
// Throws a QString when the two answers differ.
QString read(const QString& prompt, bool confirm);

} // namespace Orv::CLI::Passphrase
