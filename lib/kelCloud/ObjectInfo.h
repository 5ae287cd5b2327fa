#pragma once

#include <QDateTime>
#include <QString>

namespace Kel::Cloud {

// One object, or one container, as a listing reports it.
struct ObjectInfo
{
    // Objects: the name relative to the container, "/" between folders.
    // Containers: the container's name.
    QString name;
    // In bytes; -1 for containers.
    qint64 size = -1;
    // Objects: last modification; containers: creation, when the store tells.
    QDateTime modified;
};

} // namespace Kel::Cloud
