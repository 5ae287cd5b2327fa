#pragma once

#include <QList>
#include <QObject>

class QSocketNotifier;

namespace Orv::Service {

// Brings Unix signals into the event loop. The handler only writes the signal
// number into a pipe (async-signal-safe); a notifier on the other end emits
// received() on the main thread. Only one bridge may exist in a process.
class SignalBridge : public QObject
{
    Q_OBJECT
public:
    explicit SignalBridge(const QList<int>& signalNumbers, QObject* parent = nullptr);
    ~SignalBridge() override;

    bool isValid() const { return m_notifier != nullptr; }

signals:
    void received(int signalNumber);

private:
    static void handle(int signalNumber);
    void drain();

    QList<int> m_signals;
    QSocketNotifier* m_notifier = nullptr;
};

} // namespace Orv::Service
