#include "service/ConfigFolder.h"

#include "service/ServiceLog.h"

#include <QDir>
#include <QFile>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>

namespace Orv::Service {

namespace {

qint64 nanoseconds(const timespec& time)
{
    return static_cast<qint64>(time.tv_sec) * 1000000000 + time.tv_nsec;
}

// Closes the directory stream however the scan ends.
struct DirCloser
{
    void operator()(DIR* dir) const { ::closedir(dir); }
};

} // namespace

bool ConfigFolder::Stamp::operator==(const Stamp& other) const
{
    return inode == other.inode && size == other.size && modifiedNs == other.modifiedNs &&
           changedNs == other.changedNs;
}

ConfigFolder::ConfigFolder(const QString& path, const QString& suffix, Parser parser)
    : m_path(path), m_encodedPath(QFile::encodeName(path)), m_suffix(suffix),
      m_parser(std::move(parser))
{
}

QJsonArray ConfigFolder::rows()
{
    FolderWatch::Changes changes;
    if (m_scanned && m_watch.isArmed()) {
        changes = m_watch.takeChanges();
        if (!changes.any)
            return m_rows;
    }
    // Armed before listing, so that a change made while we list is reported
    // by the next call.
    if (!m_watch.isArmed())
        m_watch.arm(m_encodedPath);
    const QMap<QString, Stamp> stamps = scan();
    bool unchanged = m_scanned && stamps.size() == m_entries.size() && changes.names.isEmpty() &&
                     !changes.unknown;
    for (auto it = stamps.cbegin(); unchanged && it != stamps.cend(); ++it) {
        const auto known = m_entries.constFind(it.key());
        unchanged = known != m_entries.cend() && known->stamp == it.value();
    }
    if (!unchanged)
        refresh(stamps, changes);
    return m_rows;
}

QMap<QString, ConfigFolder::Stamp> ConfigFolder::scan()
{
    QMap<QString, Stamp> stamps;
    std::unique_ptr<DIR, DirCloser> dir(::opendir(m_encodedPath.constData()));
    if (!dir) {
        // A folder that does not exist yet simply holds nothing.
        reportFolderProblem(errno == ENOENT ? QString() : QString::fromLocal8Bit(strerror(errno)));
        return stamps;
    }
    reportFolderProblem({});
    const int fd = ::dirfd(dir.get());
    while (const dirent* entry = ::readdir(dir.get())) {
        // Hidden files include the temporary files of atomic writes.
        if (entry->d_name[0] == '.')
            continue;
        const QString name = QFile::decodeName(entry->d_name);
        if (!name.endsWith(m_suffix))
            continue;
        struct stat status
        {
        };
        if (::fstatat(fd, entry->d_name, &status, 0) != 0 || !S_ISREG(status.st_mode))
            continue;
        stamps.insert(name, {status.st_ino, status.st_size, nanoseconds(status.st_mtim),
                             nanoseconds(status.st_ctim)});
    }
    return stamps;
}

void ConfigFolder::refresh(const QMap<QString, Stamp>& stamps, const FolderWatch::Changes& changes)
{
    QMap<QString, Entry> entries;
    QJsonArray rows;
    for (auto it = stamps.cbegin(); it != stamps.cend(); ++it) {
        const auto known = m_entries.constFind(it.key());
        // Timestamps are coarse: a file rewritten twice within one tick keeps
        // its stamp, so what the watch names is read again regardless.
        const bool reusable = known != m_entries.cend() && known->stamp == it.value() &&
                              !changes.unknown && !changes.names.contains(it.key());
        Entry entry{it.value(), {}, {}};
        if (reusable)
            entry = *known;
        else
            entry.row = load(it.key(), it.value(), &entry.problem);
        if (entry.row)
            rows.append(*entry.row);
        entries.insert(it.key(), entry);
    }
    m_entries = std::move(entries);
    m_rows = rows;
    m_scanned = true;
    ++m_generation;
}

QMap<QString, QString> ConfigFolder::skipped() const
{
    QMap<QString, QString> files;
    for (auto it = m_entries.cbegin(); it != m_entries.cend(); ++it)
        if (!it->row)
            files.insert(it.key(), it->problem);
    return files;
}

std::optional<QJsonObject> ConfigFolder::load(const QString& fileName, const Stamp& stamp,
                                              QString* problem) const
{
    const QString filePath = QDir(m_path).filePath(fileName);
    std::optional<QJsonObject> row;
    QFile file(filePath);
    if (stamp.size > kMaxFileSize)
        *problem =
            QStringLiteral("it is %1 bytes, too large for a configuration file").arg(stamp.size);
    else if (!file.open(QIODevice::ReadOnly))
        *problem = file.errorString();
    else
        row = m_parser(file.readAll(), problem);
    if (!row)
        qCWarning(lcConfig).noquote() << "Skipping" << filePath << "-" << *problem;
    return row;
}

void ConfigFolder::reportFolderProblem(const QString& problem)
{
    if (problem == m_folderProblem)
        return;
    m_folderProblem = problem;
    if (!problem.isEmpty())
        qCWarning(lcConfig).noquote() << "Cannot list" << m_path << "-" << problem;
}

} // namespace Orv::Service
