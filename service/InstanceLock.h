#pragma once

#include <QString>
#include <sys/types.h>

namespace Orv::Service {

// The pid file, held locked for as long as the service runs: the lock makes
// sure only one service serves an instance, and it goes away by itself when
// the process dies, however it dies.
class InstanceLock
{
public:
    InstanceLock() = default;
    ~InstanceLock();
    InstanceLock(const InstanceLock&) = delete;
    InstanceLock& operator=(const InstanceLock&) = delete;

    // Locks the file and writes this process's id into it. Fails when another
    // process holds it, naming that process in *error.
    bool acquire(const QString& path, QString* error);
    // Removes the pid file and drops the lock.
    void release();
    bool isHeld() const { return m_fd >= 0; }

private:
    QString m_path;
    int m_fd = -1;
};

} // namespace Orv::Service
