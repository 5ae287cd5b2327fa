#pragma once

#include "CommandBase.h"

#include <QEventLoop>
#include <QObject>
#include <QSharedPointer>
#include <QStringList>

namespace Orv::CLI {

class CommandGroupBase;
class UnixSignalHandler;

// One run of the command line: takes the words, dispatches them through the
// variant's command tree inside the event loop, and turns the command's ending
// into the process result (0, or -1 after an error).
class Application : public QObject
{
    Q_OBJECT
public:
    Application(const QStringList& arguments, QObject* parent = nullptr);
    ~Application() override;

    void init();
    void start();
    int result() const { return m_result; }
    virtual QString welcomeString() const;

    // 0 on success; 1, 2 or 3 when the HUP, TERM or INT handler cannot be set.
    static int setupUnixSignalHandlers();

signals:
    void finished();
    void waitComplete();

public slots:
    virtual void onStarted() = 0;
    void onCommandFinished(Orv::CLI::CommandBase::ShowSuccess show);
    void onCommandError(const QString& message);
    void onGetAccountListResult();

protected:
    // Adopts the variant's tree and listens for its ending signals.
    void setRootGroup(QSharedPointer<CommandGroupBase> root);
    void checkAndProcess();
    // "account edit" names its account, not the account's type, which
    // chooses the command: the type is looked up and put in front of the
    // options. False when the run ended because no account matched.
    bool prepareAccountEdit();

    QStringList m_arguments;
    UnixSignalHandler* m_signalHandler = nullptr;
    QSharedPointer<CommandGroupBase> m_rootGroup;
    qint32 m_result = 0;
    QEventLoop m_waitLoop;
    bool m_waitDone = false;
    QString m_editedAccount;
    QString m_editPreparationError;
};

} // namespace Orv::CLI
