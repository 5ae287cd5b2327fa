#include "CommandAccountBase.h"

#include "AccountLog.h"
#include "Console.h"

namespace Orv::CLI {

CommandAccountBase::CommandAccountBase(const QString& name, const QString& description,
                                       const QString& confirmDescription,
                                       const QString& unconfirmedMessage, QObject* parent)
    : CommandBase(name, description, parent), m_unconfirmedMessage(unconfirmedMessage),
      m_idOption(QStringLiteral("id"), QStringLiteral("Account ID"), QStringLiteral("accountId")),
      m_nameOption({QStringLiteral("n"), QStringLiteral("name")}, QStringLiteral("Account name"),
                   QStringLiteral("accountName")),
      m_confirmOption({QStringLiteral("c"), QStringLiteral("confirm")}, confirmDescription),
      m_needsConfirmation(!confirmDescription.isEmpty())
{
    addOption(m_idOption, true);
    addOption(m_nameOption, true);
    if (m_needsConfirmation)
        addOption(m_confirmOption);
}

int CommandAccountBase::process(const QStringList& words)
{
    const int parsed = exec(words);
    if (parsed != Started)
        return parsed;
    const int chosen = chooseAccount();
    if (chosen != Continue)
        return chosen;
    start();
    return Started;
}

int CommandAccountBase::chooseAccount()
{
    if (!checkMandatoryParams(m_idOption, m_nameOption))
        return Usage;
    if (m_parser.isSet(m_idOption) && m_parser.isSet(m_nameOption)) {
        qCInfo(lcAccount) << "Parameter conflict:" << m_idOption.names() << m_nameOption.names();
        checkIncompatibleParams(m_idOption, m_nameOption);
        return Usage;
    }
    if (m_needsConfirmation && !m_parser.isSet(m_confirmOption)) {
        print(m_unconfirmedMessage);
        return Usage;
    }
    m_byName = m_parser.isSet(m_nameOption);
    if (m_byName)
        m_name = m_parser.value(m_nameOption).trimmed();
    else
        m_id = m_parser.value(m_idOption).trimmed();
    return Continue;
}

} // namespace Orv::CLI
