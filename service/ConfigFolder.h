#pragma once

#include "service/FolderWatch.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QMap>
#include <QString>
#include <functional>
#include <optional>
#include <sys/types.h>

namespace Orv::Service {

// A configuration folder holding one file per item (accounts, plans). An
// added, replaced, rewritten or removed file shows in the very next answer:
// the folder is listed again whenever its watch reports a change (or on every
// call while it cannot be watched), and a file is read and parsed again when
// the watch named it or its size, inode or times changed. Asking often costs
// next to nothing.
//
// Files that cannot be read or parsed are logged once per change and left
// out; they never stop the others from being listed.
class ConfigFolder
{
public:
    // Turns a file's contents into its row, or returns nothing with the
    // reason in *error.
    using Parser =
        std::function<std::optional<QJsonObject>(const QByteArray& contents, QString* error)>;

    // Files larger than this are not read: no configuration item is that big.
    static constexpr qint64 kMaxFileSize = 16 * 1024 * 1024;

    ConfigFolder(const QString& path, const QString& suffix, Parser parser);

    QString path() const { return m_path; }
    // The rows of all readable files, in file-name order.
    QJsonArray rows();
    // Changes whenever rows() gives something new, so that callers can keep
    // what they derive from the rows until then.
    quint64 generation() const { return m_generation; }
    // The files rows() left out, by file name, with the reason; as of the
    // last call of rows().
    QMap<QString, QString> skipped() const;

private:
    struct Stamp
    {
        ino_t inode = 0;
        off_t size = 0;
        qint64 modifiedNs = 0;
        qint64 changedNs = 0;
        bool operator==(const Stamp& other) const;
        bool operator!=(const Stamp& other) const { return !(*this == other); }
    };
    struct Entry
    {
        Stamp stamp;
        std::optional<QJsonObject> row;
        QString problem;
    };

    QMap<QString, Stamp> scan();
    void refresh(const QMap<QString, Stamp>& stamps, const FolderWatch::Changes& changes);
    std::optional<QJsonObject> load(const QString& fileName, const Stamp& stamp,
                                    QString* problem) const;
    void reportFolderProblem(const QString& problem);

    QString m_path;
    QByteArray m_encodedPath;
    QString m_suffix;
    Parser m_parser;
    FolderWatch m_watch;
    QMap<QString, Entry> m_entries;
    QJsonArray m_rows;
    bool m_scanned = false;
    quint64 m_generation = 0;
    QString m_folderProblem;
};

} // namespace Orv::Service
