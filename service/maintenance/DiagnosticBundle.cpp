#include "service/maintenance/DiagnosticBundle.h"

#include "service/maintenance/ZipWriter.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTimeZone>
#include <QUuid>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace Orv::Service {

namespace {

constexpr int ProgramTimeoutMs = 10000;
// A report is a screenful or two; a runaway program must not fill the archive.
constexpr qint64 MaxReportBytes = 4 * 1024 * 1024;
constexpr qint64 MaxSettingsBytes = 1024 * 1024;

const QByteArray kFrame(40, '*');

QByteArray runProgram(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForStarted(ProgramTimeoutMs))
        return QStringLiteral("cannot run %1: %2\n").arg(program, process.errorString()).toUtf8();
    QByteArray output;
    if (!process.waitForFinished(ProgramTimeoutMs)) {
        process.kill();
        process.waitForFinished(1000);
        output = QStringLiteral("(%1 stopped after %2 s)\n")
                     .arg(program)
                     .arg(ProgramTimeoutMs / 1000)
                     .toUtf8();
    }
    return process.readAll().left(static_cast<int>(MaxReportBytes)) + output;
}

QByteArray readSmallFile(const QString& path, qint64 maxBytes)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("cannot read %1: %2\n").arg(path, file.errorString()).toUtf8();
    return file.read(maxBytes);
}

QByteArray networkReport()
{
    // Newer systems have no ifconfig; ip shows the same.
    const QByteArray interfaces =
        QStandardPaths::findExecutable(QStringLiteral("ifconfig")).isEmpty()
            ? runProgram(QStringLiteral("ip"), {QStringLiteral("addr")})
            : runProgram(QStringLiteral("ifconfig"), {QStringLiteral("-a")});
    return "********** Network: ***********\n*** resolv.conf: ***\n" +
           readSmallFile(QStringLiteral("/etc/resolv.conf"), MaxReportBytes) +
           "*** ifconfig: ***\n" + interfaces;
}

QByteArray timeZoneReport()
{
    const QDateTime now = QDateTime::currentDateTime();
    const QTimeZone zone = QTimeZone::systemTimeZone();
    return QStringLiteral(
               "Time zone   : %1\nUTC offset  : %2 s\nLocal time  : %3\nUTC time    : %4\n")
        .arg(QString::fromUtf8(zone.id()))
        .arg(zone.offsetFromUtc(now))
        .arg(now.toString(Qt::ISODate), now.toUTC().toString(Qt::ISODate))
        .toUtf8();
}

QByteArray listingReport(const QStringList& folders)
{
    QByteArray report;
    for (const QString& folder : folders)
        report += kFrame + "\n" +
                  runProgram(QStringLiteral("sh"),
                             {QStringLiteral("-c"), QStringLiteral("ls -alh \"$1\""),
                              QStringLiteral("ls"), folder}) +
                  kFrame + "\n";
    return report;
}

// The system reports: name inside the archive and content.
QList<QPair<QString, QByteArray>> systemReports(const DiagnosticContent& content)
{
    const auto run = [](const char* program, const QStringList& arguments = {}) {
        return runProgram(QLatin1String(program), arguments);
    };
    const auto shell = [](const char* line) {
        return runProgram(QStringLiteral("sh"), {QStringLiteral("-c"), QLatin1String(line)});
    };
    return {
        {QStringLiteral("other/ps_aux"), run("ps", {QStringLiteral("aux")})},
        {QStringLiteral("other/free"), run("free")},
        {QStringLiteral("other/mount"), run("mount")},
        {QStringLiteral("other/ulimit"), shell("ulimit -a")},
        {QStringLiteral("other/agentOptions"), content.agentOptions},
        {QStringLiteral("other/ls"), listingReport(content.listedFolders)},
        {QStringLiteral("other/df"), "*** df -h: ***\n" + run("df", {QStringLiteral("-h")}) +
                                         "*** df -ih: ***\n" + run("df", {QStringLiteral("-ih")})},
        {QStringLiteral("other/cpuinfo"), "********** lscpu: *********\n" + run("lscpu")},
        {QStringLiteral("other/network"), networkReport()},
        {QStringLiteral("other/timezoninfo"), timeZoneReport()},
    };
}

void addLogs(ZipWriter& zip, const QString& folder, QStringList* problems)
{
    const QDir logs(folder);
    if (!logs.exists()) {
        problems->append(QStringLiteral("no dirs with logs"));
        return;
    }
    QStringList names = logs.entryList(QDir::Files | QDir::Readable, QDir::Name);
    // Archives saved here earlier are not logs.
    names.erase(std::remove_if(names.begin(), names.end(),
                               [](const QString& name) {
                                   return name.endsWith(QLatin1String(".zip")) ||
                                          name.contains(QLatin1String(".zip.part-"));
                               }),
                names.end());
    if (names.isEmpty()) {
        problems->append(QStringLiteral("no logs in dir"));
        return;
    }
    for (const QString& name : names) {
        QFile file(logs.filePath(name));
        if (!file.open(QIODevice::ReadOnly)) {
            problems->append(QStringLiteral("Error:") + name + QStringLiteral(" : can't open!"));
            continue;
        }
        // What the file holds now: a log still being written is not chased.
        const QString failure = zip.addDevice(QStringLiteral("logs/") + name, &file, file.size());
        if (!failure.isEmpty())
            problems->append(failure);
    }
}

QString addEverything(ZipWriter& zip, const DiagnosticContent& content, QStringList* problems)
{
    QList<QPair<QString, QByteArray>> entries = {
        {QStringLiteral("summary/summary.txt"), content.summary}};
    entries += content.entries;
    entries += systemReports(content);
    for (int i = 0; i < content.certificates.size(); ++i)
        entries.append({QStringLiteral("other/certs/%1.%2").arg(i + 1).arg(QStringLiteral("pem")),
                        content.certificates.at(i).toUtf8()});
    for (const QString& path : content.settingsFiles) {
        if (QFileInfo::exists(path))
            entries.append({QStringLiteral("other/") + QFileInfo(path).fileName(),
                            DiagnosticBundle::maskSettings(readSmallFile(path, MaxSettingsBytes))});
    }
    for (const auto& entry : entries) {
        if (const QString failure = zip.addBytes(entry.first, entry.second); !failure.isEmpty())
            return failure;
    }
    addLogs(zip, content.logsFolder, problems);
    return zip.close();
}

QString systemError(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

// Gives the complete archive its name, unless something took that name
// meanwhile.
QString publish(const QString& temporary, const QString& path)
{
    const QByteArray from = QFile::encodeName(temporary);
    const QByteArray to = QFile::encodeName(path);
    if (::link(from.constData(), to.constData()) == 0) {
        ::unlink(from.constData());
        return QString();
    }
    const int error = errno;
    if (error == EEXIST)
        return QStringLiteral("%1 exists already").arg(path);
    // File systems without hard links: the check and the rename are two steps.
    if ((error == EPERM || error == EOPNOTSUPP) && !QFileInfo::exists(path) &&
        ::rename(from.constData(), to.constData()) == 0)
        return QString();
    return QStringLiteral("cannot write %1: %2").arg(path, systemError(error));
}

} // namespace

QString DiagnosticBundle::write(const QString& path, const DiagnosticContent& content,
                                QStringList* problems)
{
    const QFileInfo target(path);
    if (target.exists() || target.isSymLink())
        return QStringLiteral("%1 exists already").arg(path);
    const QString temporary = target.absoluteDir().filePath(
        QStringLiteral(".%1.part-%2")
            .arg(target.fileName(), QUuid::createUuid().toString(QUuid::WithoutBraces).left(8)));
    // Made owner-only before a byte is written: the archive shows the paths
    // and names of the administrator's data.
    const int fd = ::open(QFile::encodeName(temporary).constData(),
                          O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0)
        return QStringLiteral("cannot create %1: %2").arg(temporary, systemError(errno));
    ::close(fd);
    QString failure;
    {
        ZipWriter zip(temporary);
        failure = zip.isOpen() ? addEverything(zip, content, problems)
                               : QStringLiteral("cannot create %1").arg(temporary);
    }
    if (failure.isEmpty())
        failure = publish(temporary, path);
    QFile::remove(temporary);
    return failure;
}

QByteArray DiagnosticBundle::maskSettings(const QByteArray& text)
{
    static const QRegularExpression secretKey(
        QStringLiteral("^(\\s*[^=;#\\[]*(pass|secret|token|key)[^=]*=).*$"),
        QRegularExpression::CaseInsensitiveOption);
    QStringList lines = QString::fromUtf8(text).split(QLatin1Char('\n'));
    for (QString& line : lines) {
        const QRegularExpressionMatch match = secretKey.match(line);
        if (match.hasMatch() && !line.mid(match.capturedEnd(1)).trimmed().isEmpty())
            line = match.captured(1) + QStringLiteral(" ********");
    }
    return lines.join(QLatin1Char('\n')).toUtf8();
}

} // namespace Orv::Service
