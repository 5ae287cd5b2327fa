#include "service/FolderWatch.h"

#include <QFile>
#include <cerrno>
#include <sys/inotify.h>
#include <unistd.h>

namespace Orv::Service {

namespace {

constexpr uint32_t kChanges = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_CLOSE_WRITE |
                              IN_MODIFY | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr uint32_t kWatchEnded = IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_Q_OVERFLOW;

} // namespace

FolderWatch::~FolderWatch()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

bool FolderWatch::arm(const QByteArray& encodedPath)
{
    disarm();
    if (m_fd < 0)
        m_fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_fd < 0)
        return false;
    m_watch = ::inotify_add_watch(m_fd, encodedPath.constData(), kChanges);
    return m_watch >= 0;
}

FolderWatch::Changes FolderWatch::takeChanges()
{
    Changes changes;
    if (m_fd < 0) {
        changes.any = changes.unknown = true;
        return changes;
    }
    bool ended = false;
    alignas(inotify_event) char buffer[4096];
    for (;;) {
        const ssize_t length = ::read(m_fd, buffer, sizeof(buffer));
        if (length < 0 && errno == EINTR)
            continue;
        if (length <= 0) {
            // EAGAIN: nothing (more) queued. Anything else: we cannot tell.
            if (length < 0 && errno != EAGAIN)
                changes.any = changes.unknown = ended = true;
            break;
        }
        changes.any = true;
        for (ssize_t offset = 0; offset < length;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
            if (event->mask & kWatchEnded)
                changes.unknown = ended = true;
            if (event->len > 0)
                changes.names.insert(QFile::decodeName(event->name));
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
    if (ended)
        disarm();
    return changes;
}

void FolderWatch::disarm()
{
    if (m_watch >= 0 && m_fd >= 0)
        ::inotify_rm_watch(m_fd, m_watch);
    m_watch = -1;
}

} // namespace Orv::Service
