#include "service/SignalBridge.h"

#include "service/ServiceLog.h"

#include <QSocketNotifier>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace Orv::Service {

namespace {

int g_pipe[2] = {-1, -1};

} // namespace

SignalBridge::SignalBridge(const QList<int>& signalNumbers, QObject* parent)
    : QObject(parent), m_signals(signalNumbers)
{
    if (g_pipe[0] >= 0 || ::pipe2(g_pipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        qCCritical(lcService) << "Cannot bridge signals into the event loop";
        return;
    }
    m_notifier = new QSocketNotifier(g_pipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &SignalBridge::drain);
    for (int number : qAsConst(m_signals)) {
        struct sigaction action
        {
        };
        action.sa_handler = &SignalBridge::handle;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        ::sigaction(number, &action, nullptr);
    }
}

SignalBridge::~SignalBridge()
{
    for (int number : qAsConst(m_signals))
        ::signal(number, SIG_DFL);
    if (!m_notifier)
        return;
    delete m_notifier;
    ::close(g_pipe[0]);
    ::close(g_pipe[1]);
    g_pipe[0] = g_pipe[1] = -1;
}

void SignalBridge::handle(int signalNumber)
{
    const int savedErrno = errno;
    const unsigned char byte = static_cast<unsigned char>(signalNumber);
    // A full pipe already holds plenty of wake-ups; losing this one is fine.
    [[maybe_unused]] const ssize_t written = ::write(g_pipe[1], &byte, 1);
    errno = savedErrno;
}

void SignalBridge::drain()
{
    unsigned char bytes[64];
    for (;;) {
        const ssize_t count = ::read(g_pipe[0], bytes, sizeof(bytes));
        if (count <= 0)
            return;
        for (ssize_t i = 0; i < count; ++i)
            emit received(bytes[i]);
    }
}

} // namespace Orv::Service
