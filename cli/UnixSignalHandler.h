#pragma once

#include <QObject>

class QSocketNotifier;

namespace Orv::CLI {

// Bridges HUP, TERM and INT into the event loop. The handlers only write one
// byte into a socket pair (async-signal-safe); a socket notifier on the other
// end turns it into a Qt signal on the main thread.
class UnixSignalHandler : public QObject
{
    Q_OBJECT
public:
    explicit UnixSignalHandler(QObject* parent = nullptr);
    ~UnixSignalHandler() override;

    static void hupSignalHandler(int);
    static void termSignalHandler(int);
    static void interruptSignalHandler(int);

signals:
    void sigHup();
    void sigTerm();
    void sigInt();

public slots:
    void handleSigHup();
    void handleSigTerm();
    void handleSigInt();

private:
    static int sighupFd[2];
    static int sigtermFd[2];
    static int sigintFd[2];

    QSocketNotifier* m_snHup = nullptr;
    QSocketNotifier* m_snTerm = nullptr;
    QSocketNotifier* m_snInt = nullptr;
};

} // namespace Orv::CLI
