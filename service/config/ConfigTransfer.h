#pragma once

#include <QString>

// Member names of an exported configuration's body (see ConfigFile), shared
// by the export and the import.
namespace Orv::Service::ConfigTransfer {

inline const QString Protection = QStringLiteral("protection");
inline const QString ProtectionKind = QStringLiteral("secrets");
// The secrets are in the file, sealed under the passphrase (PassphraseSeal).
inline const QString SecretsSealed = QStringLiteral("passphrase");
// The secrets were left out.
inline const QString SecretsRemoved = QStringLiteral("removed");
// Setting key -> text value, or null for "this instance's default".
inline const QString Settings = QStringLiteral("settings");
// Account records as the account catalog stores them.
inline const QString Accounts = QStringLiteral("accounts");
// Each {"xml": the plan without its password, "password": sealed, when it has one}.
inline const QString Plans = QStringLiteral("plans");
inline const QString PlanXml = QStringLiteral("xml");
inline const QString PlanPassword = QStringLiteral("password");

// What a sealed secret is bound to: the item's ID and the field.
inline QString secretContext(const QString& itemId, const QString& field)
{
    return itemId + QLatin1Char('/') + field;
}

} // namespace Orv::Service::ConfigTransfer
