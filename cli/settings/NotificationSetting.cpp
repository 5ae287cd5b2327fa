#include "NotificationSetting.h"

#include "Console.h"
#include "orvCommon/DefaultSettings.h"
#include "orvCommon/EmailAddressesConfirmed.h"
#include "orvCommon/EmailValidator.h"
#include "orvCommon/Rebranding.h"

#include <QRegularExpression>

namespace Orv::CLI {

namespace {

constexpr int kHttpOk = 200;

} // namespace

NotificationSetting::NotificationSetting(SettingCommandType type, QObject* parent)
    : BaseSetting(QStringLiteral("notification"),
                  QStringLiteral("Notification email and user name"), type, parent),
      m_mailOption(QStringList{QStringLiteral("m"), QStringLiteral("mail")},
                   QStringLiteral("Email"), QStringLiteral("email")),
      m_userOption(QStringList{QStringLiteral("u"), QStringLiteral("user")},
                   QStringLiteral("User name"), QStringLiteral("userName"))
{
    registerOption(m_mailOption);
    registerOption(m_userOption);
}

int NotificationSetting::process(const QStringList& args)
{
    return run(args);
}

bool NotificationSetting::readOptions()
{
    return setOptionalOption(m_mailOption, m_mail) && setOptionalOption(m_userOption, m_user);
}

bool NotificationSetting::getOption()
{
    DefaultSettings* store = DefaultSettings::instance();
    print(tr("Email     : ") + store->getNotifEmail() + QStringLiteral("\n"));
    print(tr("User Name : ") + store->getNotifUserName() + QStringLiteral("\n"));
    return true;
}

bool NotificationSetting::storeAddresses(const QString& mail, const QString& userName)
{
    if (Common::EmailValidator::validate(mail) != Common::EmailValidator::State::Acceptable) {
        print(tr("Email is not valid!\n"));
        return outputResult(false);
    }
    static const QRegularExpression spaces(QStringLiteral("\\s"));
    QString addresses = mail;
    addresses.remove(spaces).replace(QLatin1Char(','), QLatin1Char(';'));

    Common::EmailAddressesConfirmed service;
    const bool allowed = service.isAllowed(userName, addresses);
    if (service.responseStatus() != kHttpOk) {
        const QString provider =
            Defines::Rebranding::instance()->value(RebrandingKeys::General::CompanyName).toString();
        print(tr("Cannot reach %1 email service, check connection and try again").arg(provider));
        return false;
    }
    if (allowed)
        print(tr("Confirmation email is sent to \"") + addresses +
              tr("\". Please check your email to confirm your registration. \nYou will not "
                 "receive notification until you confirm your email address.\n"));
    return outputResult(DefaultSettings::instance()->setNotifEmail(addresses));
}

bool NotificationSetting::setOption()
{
    const QString mail = m_mail.toString();
    const QString userName = m_user.toString();
    if (!mail.isEmpty() && !storeAddresses(mail, userName))
        return false;
    // Written even when no name was given: leaving the option out clears it.
    return outputResult(DefaultSettings::instance()->setNotifUserName(userName));
}

} // namespace Orv::CLI
