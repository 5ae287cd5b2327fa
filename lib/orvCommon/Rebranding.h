#pragma once

#include <QHash>
#include <QString>
#include <QVariant>

// Keys of the branding table. Each names one value a reseller may change in
// config/branding.conf ("[General] ProductName=..." and so on).
namespace RebrandingKeys {
namespace General {
inline constexpr char ProductName[] = "General/ProductName";
inline constexpr char DisplayName[] = "General/DisplayName";
inline constexpr char CompanyName[] = "General/CompanyName";
inline constexpr char SupportEmail[] = "General/SupportEmail";
inline constexpr char ServiceUrl[] = "General/ServiceUrl";
// Where notification addresses are registered and confirmed (HTTPS, POST).
inline constexpr char EmailConfirmationUrl[] = "General/EmailConfirmationUrl";
// Where diagnostic bundles are uploaded (HTTPS, POST); it answers a case id.
inline constexpr char SupportUploadUrl[] = "General/SupportUploadUrl";
// The product-information feed: the latest build, its address, size and SHA-256.
inline constexpr char UpdateFeedUrl[] = "General/UpdateFeedUrl";
// Told when a managed client is uninstalled (HTTPS, POST).
inline constexpr char UninstallNotificationUrl[] = "General/UninstallNotificationUrl";
} // namespace General
namespace Compression {
inline constexpr char Visible[] = "Compression/Visible";
inline constexpr char DefaultValue[] = "Compression/DefaultValue";
} // namespace Compression
namespace Encryption {
inline constexpr char Visible[] = "Encryption/Visible";
inline constexpr char DefaultValue[] = "Encryption/DefaultValue";
} // namespace Encryption
namespace SSE {
inline constexpr char Visible[] = "SSE/Visible";
inline constexpr char DefaultValue[] = "SSE/DefaultValue";
} // namespace SSE
} // namespace RebrandingKeys

namespace Orv::Defines {

// Branding values: compiled-in defaults, each optionally overridden by the
// installation's config/branding.conf.
class Rebranding
{
public:
    static Rebranding* instance();
    static void reload();

    QVariant value(const char* key) const;
    QVariant value(const QString& key) const;

private:
    Rebranding();
    QHash<QString, QVariant> m_values;
};

} // namespace Orv::Defines
