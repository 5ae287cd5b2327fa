#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

namespace Orv::Service {

// What a diagnostic archive holds besides the files it reads while it is
// written. Gathered on the service's thread (it needs the catalogues and the
// run history), small, with every secret already hidden.
struct DiagnosticContent
{
    // "summary/summary.txt".
    QByteArray summary;
    // "accounts/..." and "plans/..." entries, masked.
    QList<QPair<QString, QByteArray>> entries;
    // The trusted server certificates, PEM each.
    QStringList certificates;
    // Copied whole, as "logs/<name>".
    QString logsFolder;
    // Listed in "other/ls".
    QStringList listedFolders;
    // Copied into "other/<file name>" with the values of secret-looking keys
    // hidden.
    QStringList settingsFiles;
    // The network library's global options, "other/agentOptions".
    QByteArray agentOptions;
    // What could not be gathered, for the administrator.
    QStringList problems;
};

// The archive itself. It is written to a hidden temporary name beside path and
// renamed only when complete, so that no one ever sees a partial archive under
// the final name; an existing file at path is never replaced.
class DiagnosticBundle
{
public:
    // Empty on success, otherwise the reason (nothing is left behind then).
    // Entries that could not be read are left out and named in problems.
    static QString write(const QString& path, const DiagnosticContent& content,
                         QStringList* problems);

    // "password = x" lines of an INI text with their value hidden.
    static QByteArray maskSettings(const QByteArray& text);
};

} // namespace Orv::Service
