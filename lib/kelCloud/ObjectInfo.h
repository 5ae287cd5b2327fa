#pragma once

#include <QDateTime>
#include <QString>

namespace Kel::Cloud {

// One object, or one container, as a listing reports it.
struct ObjectInfo
{
    ObjectInfo() = default;
    ObjectInfo(const QString& name, qint64 size, const QDateTime& modified = {})
        : name(name), size(size), modified(modified)
    {
    }

    // Objects: the name relative to the container, "/" between folders.
    // Containers: the container's name.
    QString name;
    // In bytes; -1 for containers.
    qint64 size = -1;
    // Objects: last modification; containers: creation, when the store tells.
    QDateTime modified;
    // Containers of stores that also name them by an identifier of their own
    // (Backblaze B2's bucket id); empty elsewhere.
    QString id;
};

} // namespace Kel::Cloud
