#include "UnixSignalHandler.h"

#include <QSocketNotifier>

#include <sys/socket.h>
#include <unistd.h>

namespace Orv::CLI {

int UnixSignalHandler::sighupFd[2] = {-1, -1};
int UnixSignalHandler::sigtermFd[2] = {-1, -1};
int UnixSignalHandler::sigintFd[2] = {-1, -1};

namespace {

void notifyPair(const int fds[2])
{
    const char one = 1;
    // Nothing else is safe in a signal handler; a full pipe just drops the byte.
    [[maybe_unused]] const ssize_t written = ::write(fds[0], &one, sizeof one);
}

void drainOne(int fd)
{
    char byte = 0;
    [[maybe_unused]] const ssize_t read = ::read(fd, &byte, sizeof byte);
}

} // namespace

UnixSignalHandler::UnixSignalHandler(QObject* parent) : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, sighupFd))
        qFatal("Couldn't create HUP socketpair");
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, sigtermFd))
        qFatal("Couldn't create TERM socketpair");
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, sigintFd))
        qFatal("Couldn't create INT socketpair");

    m_snHup = new QSocketNotifier(sighupFd[1], QSocketNotifier::Read, this);
    connect(m_snHup, &QSocketNotifier::activated, this, &UnixSignalHandler::handleSigHup);
    m_snTerm = new QSocketNotifier(sigtermFd[1], QSocketNotifier::Read, this);
    connect(m_snTerm, &QSocketNotifier::activated, this, &UnixSignalHandler::handleSigTerm);
    m_snInt = new QSocketNotifier(sigintFd[1], QSocketNotifier::Read, this);
    connect(m_snInt, &QSocketNotifier::activated, this, &UnixSignalHandler::handleSigInt);
}

UnixSignalHandler::~UnixSignalHandler()
{
    for (int* fds : {sighupFd, sigtermFd, sigintFd}) {
        for (int i = 0; i < 2; ++i) {
            if (fds[i] >= 0)
                ::close(fds[i]);
            fds[i] = -1;
        }
    }
}

void UnixSignalHandler::hupSignalHandler(int)
{
    notifyPair(sighupFd);
}

void UnixSignalHandler::termSignalHandler(int)
{
    notifyPair(sigtermFd);
}

void UnixSignalHandler::interruptSignalHandler(int)
{
    notifyPair(sigintFd);
}

void UnixSignalHandler::handleSigHup()
{
    m_snHup->setEnabled(false);
    drainOne(sighupFd[1]);
    emit sigHup();
    m_snHup->setEnabled(true);
}

void UnixSignalHandler::handleSigTerm()
{
    m_snTerm->setEnabled(false);
    drainOne(sigtermFd[1]);
    emit sigTerm();
    m_snTerm->setEnabled(true);
}

void UnixSignalHandler::handleSigInt()
{
    m_snInt->setEnabled(false);
    drainOne(sigintFd[1]);
    emit sigInt();
    m_snInt->setEnabled(true);
}

} // namespace Orv::CLI
