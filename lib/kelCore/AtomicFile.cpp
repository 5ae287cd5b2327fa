#include "kelCore/AtomicFile.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

namespace Kel::Core {

QString AtomicFile::write(const QString& path, const QByteArray& data, int permissions)
{
    const QFileInfo info(path);
    if (!QDir().mkpath(info.absolutePath()))
        return QStringLiteral("cannot create folder %1").arg(info.absolutePath());
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return file.errorString();
    QFileDevice::Permissions perms;
    if (permissions & 0400)
        perms |= QFileDevice::ReadOwner;
    if (permissions & 0200)
        perms |= QFileDevice::WriteOwner;
    if (permissions & 0040)
        perms |= QFileDevice::ReadGroup;
    if (permissions & 0004)
        perms |= QFileDevice::ReadOther;
    file.setPermissions(perms);
    if (file.write(data) != data.size()) {
        const QString reason = file.errorString();
        file.cancelWriting();
        return reason;
    }
    if (!file.commit())
        return file.errorString();
    return {};
}

} // namespace Kel::Core
