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

// Process-wide log sink. Every Qt message (qDebug, qInfo, qWarning, qCritical
// and their categorised forms) is routed here once init() has run, and written
// as one line to "<logPath>/<appPrefix>.log". Lines are written with a single
// append so that several processes can share a file without tearing lines.
class LogManager
{
public:
    static LogManager* instance();

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
};

} // namespace Kel
