#pragma once

#include <QString>

namespace Kel::Core {

// An exclusive advisory lock on a lock file beside the data it guards, held for
// the lifetime of the object. Processes that read, change and rewrite a shared
// file take it around the whole sequence, so that concurrent writers never lose
// each other's changes. The kernel drops the lock when its holder dies, so a
// crashed process never leaves it stuck.
class FileLock
{
public:
    explicit FileLock(const QString& lockPath);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    // Waits at most timeoutMs for the lock. False when the lock file cannot be
    // opened or another holder keeps it longer than that.
    bool acquire(int timeoutMs = 10000);
    bool isLocked() const { return m_fd >= 0; }

private:
    void release();

    QString m_path;
    int m_fd = -1;
};

} // namespace Kel::Core
