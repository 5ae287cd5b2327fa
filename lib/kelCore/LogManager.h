#pragma once

#include <QMutex>
#include <QString>
#include <QStringList>

namespace Kel {

// Levels as the administrator chooses them. Low keeps warnings and errors,
// High adds informational lines, Debug adds everything.
enum class LogLevel { Disable = 0, Low = 1, High = 2, Debug = 3 };

QStringList logLevelNames();
// Case-insensitive; returns false when the name is not a level.
bool logLevelFromName(const QString& name, LogLevel* level);
QString logLevelName(LogLevel level);

// A value as it may go into a log line or a message: text longer than limit
// characters is cut there, with a mark that tells it was and how long it was.
QString clipped(const QString& text, int limit = 256);

// Process-wide log sink. Every Qt message (qDebug, qInfo, qWarning, qCritical
// and their categorised forms) is routed here once init() has run, and written
// as one line to "<logPath>/<appPrefix>.log". Lines are written with a single
// append so that several processes can share a file without tearing lines.
//
// Nobody can flood the file away: a message is cut to kMaxMessageChars, and
// a line identical to the one before it, within kRepeatWindowMs of its last
// written copy, is only counted; the count is written once another line comes
// or the window has passed.
class LogManager
{
public:
    static constexpr int kMaxMessageChars = 8192;
    static constexpr qint64 kRepeatWindowMs = 10000;

    static LogManager* instance();
    ~LogManager();

    void setVerbose(bool verbose) { m_verbose = verbose; }
    void setAppPrefix(const QString& prefix) { m_appPrefix = prefix; }
    void setOutToFile(bool on) { m_outToFile = on; }
    void setOutToStream(bool on) { m_outToStream = on; }
    void setDebug(bool on) { m_debug = on; }
    void setRawOutput(bool on) { m_rawOutput = on; }
    void setCrashHandler(bool on) { m_crashHandler = on; }
    void setLogPath(const QString& path);
    void setLogLevel(LogLevel level);
    // Rotated files older than this many days are removed.
    void setRotateDays(int days);
    // The current file is rotated when it grows beyond this size.
    void setMaxFileSize(qint64 bytes) { m_maxFileSize = bytes; }

    QString logPath() const;
    QString logFilePath() const;
    LogLevel logLevel() const;

    // Opens the log file and installs the message handler. May be called again
    // after changing the path or level: the new values take effect at once.
    bool init();
    // Writes the line as the handler would; for callers that bypass Qt's macros.
    void write(QtMsgType type, const char* category, const QString& message);

private:
    LogManager() = default;
    static void messageHandler(QtMsgType type, const QMessageLogContext& context,
                               const QString& message);
    bool accepts(QtMsgType type) const;
    QByteArray formatLine(QtMsgType type, const char* category, const QString& message) const;
    void emitLocked(QtMsgType type, const char* category, const QString& message);
    void flushRepeatsLocked();
    bool openFileLocked();
    void rotateLocked();
    void purgeOldFilesLocked();

    mutable QMutex m_mutex;
    bool m_verbose = false;
    bool m_outToFile = true;
    bool m_outToStream = false;
    bool m_debug = false;
    bool m_rawOutput = false;
    bool m_crashHandler = false;
    QString m_appPrefix = QStringLiteral("orv");
    QString m_logPath;
    LogLevel m_level = LogLevel::High;
    int m_rotateDays = 30;
    qint64 m_maxFileSize = 10 * 1024 * 1024;
    qint64 m_fileSize = 0;
    int m_fd = -1;
    // The last line written, and how often it came again since.
    QtMsgType m_lastType = QtDebugMsg;
    QByteArray m_lastCategory;
    QString m_lastMessage;
    qint64 m_lastWrittenMs = 0;
    int m_repeats = 0;
};

} // namespace Kel
