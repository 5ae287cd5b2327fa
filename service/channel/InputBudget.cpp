#include "service/channel/InputBudget.h"

#include <QMetaObject>

namespace Orv::Service {

bool InputBudget::change(qint64 held, qint64 wanted)
{
    if (wanted > held && m_used + (wanted - held) > m_capacity)
        return false;
    m_used += wanted - held;
    if (wanted < held && !m_releaseQueued) {
        m_releaseQueued = true;
        QMetaObject::invokeMethod(
            this,
            [this] {
                m_releaseQueued = false;
                emit released();
            },
            Qt::QueuedConnection);
    }
    return true;
}

} // namespace Orv::Service
