#pragma once

#include <QObject>

namespace Orv::Service {

// The memory that all clients together may fill with requests they have not
// finished sending. A connection reserves the whole of a large frame as soon
// as its header announces it, and reads nothing more of it until the
// reservation is granted: the kernel then slows that client down instead of
// the service's memory growing. What a frame up to the allowance needs is never
// asked for, so short requests get through while large ones wait.
class InputBudget : public QObject
{
    Q_OBJECT
public:
    // Each connection may hold this much without a reservation.
    static constexpr qint64 kAllowance = 128 * 1024;

    explicit InputBudget(qint64 capacity, QObject* parent = nullptr)
        : QObject(parent), m_capacity(capacity)
    {
    }

    // Moves a connection's reservation from held to wanted bytes (both beyond
    // the allowance). Giving back always succeeds; taking more succeeds only
    // when all of it fits, else nothing changes.
    bool change(qint64 held, qint64 wanted);

    qint64 capacity() const { return m_capacity; }
    void setCapacity(qint64 bytes) { m_capacity = bytes; }
    qint64 used() const { return m_used; }

signals:
    // Bytes were given back: connections that wait may try again. Emitted
    // from the event loop, once for every batch of returns.
    void released();

private:
    qint64 m_capacity = 0;
    qint64 m_used = 0;
    bool m_releaseQueued = false;
};

} // namespace Orv::Service
