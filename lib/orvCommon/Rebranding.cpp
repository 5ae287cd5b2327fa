#include "orvCommon/Rebranding.h"

#include "orvCommon/AppPath.h"

#include <QFileInfo>
#include <QSettings>

namespace Orv::Defines {

namespace {

Rebranding*& current()
{
    static Rebranding* branding = nullptr;
    return branding;
}

QHash<QString, QVariant> defaults()
{
    using namespace RebrandingKeys;
    return {
        {QLatin1String(General::ProductName), QStringLiteral("Orv Backup")},
        {QLatin1String(General::DisplayName), QStringLiteral("Orv")},
        {QLatin1String(General::CompanyName), QStringLiteral("Orv")},
        {QLatin1String(General::SupportEmail), QString()},
        {QLatin1String(General::ServiceUrl), QString()},
        // A reseller sets its own service; the reserved name resolves nowhere.
        {QLatin1String(General::EmailConfirmationUrl),
         QStringLiteral("https://email-confirmation.invalid/v1/notification-emails")},
        {QLatin1String(General::SupportUploadUrl),
         QStringLiteral("https://support.invalid/v1/diagnostic-logs")},
        {QLatin1String(General::UpdateFeedUrl),
         QStringLiteral("https://updates.invalid/v1/linux/latest.json")},
        {QLatin1String(General::UninstallNotificationUrl),
         QStringLiteral("https://service.invalid/v1/uninstall-notifications")},
        {QLatin1String(Compression::Visible), true},
        {QLatin1String(Compression::DefaultValue), true},
        {QLatin1String(Encryption::Visible), true},
        {QLatin1String(Encryption::DefaultValue), false},
        {QLatin1String(SSE::Visible), true},
        {QLatin1String(SSE::DefaultValue), false},
    };
}

} // namespace

Rebranding::Rebranding() : m_values(defaults())
{
    const QString path = AppPath::to().brandingFile();
    if (!QFileInfo::exists(path))
        return;
    const QSettings overrides(path, QSettings::IniFormat);
    for (auto it = m_values.begin(); it != m_values.end(); ++it) {
        // The INI reader files a "[General]" section's keys at the top level.
        const QString key = it.key().startsWith(QLatin1String("General/"))
                                ? it.key().mid(int(qstrlen("General/")))
                                : it.key();
        if (!overrides.contains(key))
            continue;
        const QVariant given = overrides.value(key);
        // Keep the compiled-in type: a "false" in the file must read as false.
        if (it.value().type() == QVariant::Bool)
            it.value() = given.toString().trimmed().toLower() == QLatin1String("true");
        else
            it.value() = given.toString();
    }
}

Rebranding* Rebranding::instance()
{
    if (!current())
        current() = new Rebranding();
    return current();
}

void Rebranding::reload()
{
    delete current();
    current() = new Rebranding();
}

QVariant Rebranding::value(const char* key) const
{
    return m_values.value(QLatin1String(key));
}

QVariant Rebranding::value(const QString& key) const
{
    return m_values.value(key);
}

} // namespace Orv::Defines
