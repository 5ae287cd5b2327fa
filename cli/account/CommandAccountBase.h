#pragma once

#include "CommandBase.h"

namespace Orv::CLI {

// Base of the commands that act on one existing account, named by its ID or
// by its name, and, for the destructive ones, only with the confirm switch.
class CommandAccountBase : public CommandBase
{
    Q_OBJECT
public:
    enum Result
    {
        Usage = 3,
        Continue = 4
    };

    int process(const QStringList& words) override;

protected:
    // An empty confirmDescription means the command needs no confirmation;
    // otherwise unconfirmedMessage is printed when the switch is missing.
    CommandAccountBase(const QString& name, const QString& description,
                       const QString& confirmDescription = QString(),
                       const QString& unconfirmedMessage = QString(), QObject* parent = nullptr);

    // Sends the command's request once the account is named.
    virtual void start() = 0;
    bool byName() const { return m_byName; }
    // The trimmed name or id, whichever was given.
    QString nameOrId() const { return byName() ? m_name : m_id; }

    QString m_name;
    QString m_id;
    bool m_byName = false;

private:
    // Continue when the options name exactly one account (and confirm, when
    // asked for); otherwise Usage, with the reason printed.
    int chooseAccount();

    QString m_unconfirmedMessage;
    QCommandLineOption m_idOption;
    QCommandLineOption m_nameOption;
    QCommandLineOption m_confirmOption;
    bool m_needsConfirmation;
};

} // namespace Orv::CLI
