#include "CommandSendLog.h"

#include "Console.h"
#include "Feedback.h"
#include "orvCommon/Installation.h"

namespace Orv::CLI {

CommandSendLog::CommandSendLog(QObject* parent)
    : CommandBase(QStringLiteral("send-log"), QStringLiteral("send error report"), parent),
      m_userOption(QStringList{QStringLiteral("user")}, QStringLiteral("User name"),
                   QStringLiteral("user")),
      m_emailOption(QStringList{QStringLiteral("email")}, QStringLiteral("User email"),
                    QStringLiteral("email")),
      m_messageOption(QStringList{QStringLiteral("message")}, QStringLiteral("Message"),
                      QStringLiteral("message")),
      m_localOption(QStringList{QStringLiteral("local")}, QStringLiteral("Save log to local path"),
                    QStringLiteral("true/false"))
{
    addOption(m_userOption);
    addOption(m_emailOption);
    addOption(m_messageOption);
    addOption(m_localOption, true);
}

int CommandSendLog::process(const QStringList& words)
{
    const int code = exec(words);
    if (code != Started)
        return code;
    QVariant user;
    QVariant email;
    QVariant message;
    QVariant local = false;
    if (SHARED::defines::common::is_standalone() && !setMandatoryOption(m_emailOption, email))
        return Unknown;
    if (!setMandatoryOption(m_userOption, user) || !setOptionalOption(m_messageOption, message) ||
        !setSwitchModeOption(m_localOption, local, false))
        return Unknown;
    bool sent = false;
    try {
        sent = Feedback::sendLog(user.toString(), email.toString(), message.toString(),
                                 local.toBool());
    } catch (const QString& reason) {
        print(reason + QStringLiteral("\n"));
    }
    if (sent)
        emit finished(DontShow);
    else
        emit error(QString());
    return Started;
}

} // namespace Orv::CLI
