#pragma once

#include "kelNetwork/ProxySettings.h"

#include <QString>
#include <QVariantMap>

namespace Kel::Cloud {

// Typed reads of an account configuration, whose values are mostly text
// written by people or by other programs.
class ConfigReader
{
public:
    explicit ConfigReader(const QVariantMap& config) : m_config(config) {}

    bool has(const char* key) const;
    // As given (secrets keep their blanks).
    QString raw(const char* key) const;
    QString text(const char* key) const { return raw(key).trimmed(); }
    // "true"/"false", "1"/"0", "yes"/"no", "on"/"off" in any case; the
    // fallback when absent or empty. ok (when given) is false for other text.
    bool flag(const char* key, bool fallback, bool* ok = nullptr) const;
    // The fallback when absent or empty; ok is false for text that is not a
    // whole number.
    qint64 number(const char* key, qint64 fallback, bool* ok = nullptr) const;
    // The upload part size (Config::PartSize) within [minimum, maximum]; false
    // with the reason in *error when it is not a number or out of range.
    bool partSize(qint64 fallback, qint64 minimum, qint64 maximum, qint64* size,
                  QString* error) const;

    Kel::Network::ProxySettings proxy() const;
    // The configuration's own values, else the network library's.
    int retryAttempts() const;
    int retryInterval() const;

private:
    const QVariantMap& m_config;
};

} // namespace Kel::Cloud
