#pragma once

#include <QByteArray>
#include <QSet>
#include <QString>

namespace Orv::Service {

// Tells whether anything in one folder changed since it was last asked: an
// entry created, removed, renamed, written or its attributes changed. The
// kernel records a change before the call that made it returns, so a change a
// client made before sending a request is always seen while answering it.
//
// When the folder does not exist, or the kernel cannot watch it, the watch is
// not armed and the caller has to look at the folder itself every time.
class FolderWatch
{
public:
    FolderWatch() = default;
    ~FolderWatch();
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;

    // Starts watching; false when that is not possible now.
    bool arm(const QByteArray& encodedPath);
    bool isArmed() const { return m_watch >= 0; }
    struct Changes
    {
        // Anything at all happened.
        bool any = false;
        // The names are not complete: events were lost or the watch ended.
        bool unknown = false;
        // Entries created, removed, renamed or written.
        QSet<QString> names;
    };
    // What changed since the last call. When the watch ended (folder removed
    // or moved) it is disarmed.
    Changes takeChanges();

private:
    void disarm();

    int m_fd = -1;
    int m_watch = -1;
};

} // namespace Orv::Service
