#pragma once

#include "BaseSetting.h"

namespace Orv::CLI {

// "notification": where the client sends its e-mail notifications, and the
// name it greets the reader with. New addresses are registered with the
// provider's confirmation service before they are kept.
class NotificationSetting : public BaseSetting
{
    Q_OBJECT
public:
    explicit NotificationSetting(SettingCommandType type, QObject* parent = nullptr);

    int process(const QStringList& args) override;

protected:
    bool readOptions() override;
    bool setOption() override;
    bool getOption() override;

private:
    // Checks the addresses with the confirmation service and keeps them.
    // False when they are not valid, not confirmed or not written.
    bool storeAddresses(const QString& addresses, const QString& userName);

    QCommandLineOption m_mailOption;
    QCommandLineOption m_userOption;
    QVariant m_mail;
    QVariant m_user;
};

} // namespace Orv::CLI
