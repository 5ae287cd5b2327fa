#include "kelCore/LogLocation.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <sys/stat.h>

namespace Kel {

namespace {

constexpr mode_t kOpenToAll = 0777;

} // namespace

LogLocation::Status LogLocation::check(const QString& path)
{
    if (path.trimmed().isEmpty())
        return Status::EmptyPath;
    const QFileInfo info(path);
    if (!info.exists()) {
        if (!QDir().mkpath(path))
            return Status::CannotCreate;
        ::chmod(QFile::encodeName(path).constData(), kOpenToAll);
    }
    struct stat st
    {
    };
    if (::stat(QFile::encodeName(path).constData(), &st) != 0 || !S_ISDIR(st.st_mode))
        return Status::CannotCreate;
    if ((st.st_mode & kOpenToAll) != kOpenToAll)
        return Status::NoPermissions;
    return Status::NoError;
}

QString LogLocation::message(Status status)
{
    switch (status) {
    case Status::NoError:
        return QStringLiteral("No error");
    case Status::EmptyPath:
        return QStringLiteral("Logs directory must not be empty");
    case Status::CannotCreate:
        return QStringLiteral("Unable to create the specified logs path");
    case Status::NoPermissions:
        return QStringLiteral("Logs directory must have read & write permissions for all users "
                              "(chmod 777)");
    }
    return QString();
}

} // namespace Kel
