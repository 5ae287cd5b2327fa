#include "TmpChunkPathSetting.h"

#include "Console.h"
#include "orvCommon/DefaultSettings.h"
#include "orvCommon/Rebranding.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <sys/stat.h>

namespace Orv::CLI {

namespace {

constexpr mode_t kOpenToAll = 0777;

// Opens the folder to everyone unless it already is. Done with chmod(2), not
// a shell, so that no path can be read as a command.
bool openToAll(const QString& path)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat st
    {
    };
    if (::stat(name.constData(), &st) == 0 && (st.st_mode & kOpenToAll) == kOpenToAll)
        return true;
    return ::chmod(name.constData(), kOpenToAll) == 0;
}

} // namespace

TmpChunkPathSetting::TmpChunkPathSetting(SettingCommandType type, QObject* parent)
    : BaseValueSetting(QStringLiteral("chunkpath"),
                       QStringLiteral("Temporary chunks path, used on multipart upload"), type,
                       QStringLiteral("Temporary chunk path"), QStringLiteral("value"), parent)
{
}

QString TmpChunkPathSetting::defaultPath()
{
    return QStringLiteral("/tmp/") +
           Defines::Rebranding::instance()->value(RebrandingKeys::General::DisplayName).toString() +
           QStringLiteral("/Plans/");
}

QString TmpChunkPathSetting::usage() const
{
    return tr("set chunkpath -v value\n\t-v value: Path for temporary chunks. default : \"") +
           defaultPath() + QStringLiteral("\"\n");
}

bool TmpChunkPathSetting::getOption()
{
    const QString path = DefaultSettings::instance()->getTmpChunkPath();
    if (path.isEmpty()) {
        print(tr("Path for temporary chunks: ") + defaultPath() + QStringLiteral("\n"));
        return true;
    }
    print(tr("Path for temporary chunks: ") + path);
    return true;
}

bool TmpChunkPathSetting::setOption()
{
    if (!hasValue())
        return false;
    // The service does not share this process's working folder.
    const QString path = QFileInfo(value()).absoluteFilePath();
    if (!QFileInfo(path).isDir() && !QDir().mkpath(path)) {
        print(tr("Can't create path "));
        return outputResult(false);
    }
    if (!openToAll(path)) {
        print(tr("Can't run chmod for path.\n"));
        return outputResult(false);
    }
    return outputResult(DefaultSettings::instance()->setTmpChunkPath(path));
}

} // namespace Orv::CLI
