#include "kelCore/LogManager.h"

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

namespace Kel {

namespace {

constexpr int kRotatedFilesKept = 9;

const char* levelTag(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return "DEBUG";
    case QtInfoMsg:
        return "INFO";
    case QtWarningMsg:
        return "WARN";
    case QtCriticalMsg:
        return "ERROR";
    case QtFatalMsg:
        return "FATAL";
    }
    return "INFO";
}

} // namespace

QStringList logLevelNames()
{
    return {QStringLiteral("Disable"), QStringLiteral("Low"), QStringLiteral("High"),
            QStringLiteral("Debug")};
}

QString logLevelName(LogLevel level)
{
    return logLevelNames().value(static_cast<int>(level));
}

bool logLevelFromName(const QString& name, LogLevel* level)
{
    const QStringList names = logLevelNames();
    for (int i = 0; i < names.size(); ++i) {
        if (names.at(i).compare(name.trimmed(), Qt::CaseInsensitive) == 0) {
            *level = static_cast<LogLevel>(i);
            return true;
        }
    }
    return false;
}

QString clipped(const QString& text, int limit)
{
    if (text.size() <= limit)
        return text;
    return text.left(limit) + QStringLiteral("...[cut, %1 characters in all]").arg(text.size());
}

LogManager* LogManager::instance()
{
    static LogManager manager;
    return &manager;
}

LogManager::~LogManager()
{
    QMutexLocker lock(&m_mutex);
    flushRepeatsLocked();
}

void LogManager::setLogPath(const QString& path)
{
    QMutexLocker lock(&m_mutex);
    m_logPath = path;
}

void LogManager::setLogLevel(LogLevel level)
{
    QMutexLocker lock(&m_mutex);
    m_level = level;
}

void LogManager::setRotateDays(int days)
{
    QMutexLocker lock(&m_mutex);
    m_rotateDays = days > 0 ? days : 1;
}

QString LogManager::logPath() const
{
    QMutexLocker lock(&m_mutex);
    return m_logPath;
}

QString LogManager::logFilePath() const
{
    return QDir(logPath()).filePath(m_appPrefix + QStringLiteral(".log"));
}

LogLevel LogManager::logLevel() const
{
    QMutexLocker lock(&m_mutex);
    return m_level;
}

bool LogManager::init()
{
    bool ok = true;
    {
        QMutexLocker lock(&m_mutex);
        if (m_fd >= 0) {
            ::close(m_fd);
            m_fd = -1;
        }
        if (m_outToFile && m_level != LogLevel::Disable) {
            ok = openFileLocked();
            if (ok)
                purgeOldFilesLocked();
        }
    }
    qInstallMessageHandler(&LogManager::messageHandler);
    return ok;
}

bool LogManager::openFileLocked()
{
    if (m_logPath.isEmpty() || !QDir().mkpath(m_logPath))
        return false;
    const QByteArray path =
        QFile::encodeName(QDir(m_logPath).filePath(m_appPrefix + QStringLiteral(".log")));
    m_fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (m_fd < 0)
        return false;
    struct stat st {};
    m_fileSize = ::fstat(m_fd, &st) == 0 ? st.st_size : 0;
    if (m_fileSize > m_maxFileSize)
        rotateLocked();
    return m_fd >= 0;
}

void LogManager::rotateLocked()
{
    const QString base = QDir(m_logPath).filePath(m_appPrefix + QStringLiteral(".log"));
    QFile::remove(base + QLatin1Char('.') + QString::number(kRotatedFilesKept));
    for (int i = kRotatedFilesKept - 1; i >= 1; --i)
        QFile::rename(base + QLatin1Char('.') + QString::number(i),
                      base + QLatin1Char('.') + QString::number(i + 1));
    QFile::rename(base, base + QStringLiteral(".1"));
    ::close(m_fd);
    m_fd = ::open(QFile::encodeName(base).constData(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC,
                  0600);
    m_fileSize = 0;
}

void LogManager::purgeOldFilesLocked()
{
    const QDateTime limit = QDateTime::currentDateTime().addDays(-m_rotateDays);
    const QDir dir(m_logPath);
    const QStringList rotated =
        dir.entryList({m_appPrefix + QStringLiteral(".log.*")}, QDir::Files);
    for (const QString& name : rotated) {
        const QFileInfo info(dir.filePath(name));
        if (info.lastModified() < limit)
            QFile::remove(info.filePath());
    }
}

bool LogManager::accepts(QtMsgType type) const
{
    switch (m_level) {
    case LogLevel::Disable:
        return type == QtFatalMsg;
    case LogLevel::Low:
        return type != QtDebugMsg && type != QtInfoMsg;
    case LogLevel::High:
        return type != QtDebugMsg || m_debug || m_verbose;
    case LogLevel::Debug:
        return true;
    }
    return true;
}

QByteArray LogManager::formatLine(QtMsgType type, const char* category,
                                  const QString& message) const
{
    if (m_rawOutput)
        return message.toUtf8() + '\n';
    QByteArray line = QDateTime::currentDateTime()
                          .toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz"))
                          .toLatin1();
    line += ' ';
    line += m_appPrefix.toUtf8();
    line += '[';
    line += QByteArray::number(static_cast<qint64>(::getpid()));
    line += "] ";
    line += levelTag(type);
    if (category && *category && qstrcmp(category, "default") != 0) {
        line += " [";
        line += category;
        line += ']';
    }
    line += ' ';
    // One record per line: embedded line breaks would let a value forge entries.
    QString flat = message;
    flat.replace(QLatin1Char('\n'), QStringLiteral("\\n"));
    line += flat.toUtf8();
    line += '\n';
    return line;
}

void LogManager::write(QtMsgType type, const char* category, const QString& message)
{
    static const QElapsedTimer clock = [] {
        QElapsedTimer started;
        started.start();
        return started;
    }();
    QMutexLocker lock(&m_mutex);
    if (!accepts(type))
        return;
    const QString text = clipped(message, kMaxMessageChars);
    const qint64 now = clock.elapsed();
    const bool again = type == m_lastType && text == m_lastMessage &&
                       qstrcmp(category ? category : "", m_lastCategory.constData()) == 0;
    if (again && now - m_lastWrittenMs < kRepeatWindowMs) {
        ++m_repeats;
        return;
    }
    flushRepeatsLocked();
    emitLocked(type, category, text);
    m_lastType = type;
    m_lastCategory = category ? QByteArray(category) : QByteArray("");
    m_lastMessage = text;
    m_lastWrittenMs = now;
}

void LogManager::flushRepeatsLocked()
{
    if (m_repeats == 0)
        return;
    const int repeats = m_repeats;
    m_repeats = 0;
    emitLocked(m_lastType, m_lastCategory.constData(),
               QStringLiteral("(the line before came %1 more time(s))").arg(repeats));
}

void LogManager::emitLocked(QtMsgType type, const char* category, const QString& message)
{
    const QByteArray line = formatLine(type, category, message);
    if (m_outToStream)
        ::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stderr);
    if (!m_outToFile || m_fd < 0)
        return;
    if (m_fileSize + line.size() > m_maxFileSize)
        rotateLocked();
    if (m_fd < 0)
        return;
    const ssize_t written = ::write(m_fd, line.constData(), static_cast<size_t>(line.size()));
    if (written > 0)
        m_fileSize += written;
}

void LogManager::messageHandler(QtMsgType type, const QMessageLogContext& context,
                                const QString& message)
{
    instance()->write(type, context.category, message);
    if (type == QtFatalMsg)
        ::abort();
}

} // namespace Kel
