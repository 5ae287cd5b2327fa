#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QString>

namespace Orv::Info::Repository {

// What a storage holds in the new backup format, as the service reports it:
// bunches (one backup plan's data), their generations (restore points made
// with one set of keys), the restore points, and the content of a point.
// Each travels as one JSON object; fromJson() is lenient about members it does
// not know and refuses an object without an id.

// The current backup format (cbf) is listed in the same objects: a backup
// plan's data is a bunch (the plan's id and name), holding one generation of
// this id whose restore points are the plan's runs (the first run and the
// forced full ones Full, the others Incremental). A point of that generation
// is a point in time: a restore takes each file's version as of that run.
inline const QString kCurrentFormatGeneration = QStringLiteral("cbf");

class Bunch
{
public:
    QString id() const { return m_id; } // the backup plan's id, without braces
    void setId(const QString& id) { m_id = id; }
    QString displayName() const { return m_name; }
    void setDisplayName(const QString& name) { m_name = name; }

    QJsonObject toJson() const;
    bool fromJson(const QJsonObject& object);

private:
    QString m_id;
    QString m_name;
};

class Generation
{
public:
    QString id() const { return m_id; }
    void setId(const QString& id) { m_id = id; }
    QDateTime firstRestorePoint() const { return m_first; }
    void setFirstRestorePoint(const QDateTime& time) { m_first = time; }
    QDateTime lastRestorePoint() const { return m_last; }
    void setLastRestorePoint(const QDateTime& time) { m_last = time; }
    int warningCount() const { return m_warnings; }
    void setWarningCount(int count) { m_warnings = count; }
    int errorCount() const { return m_errors; }
    void setErrorCount(int count) { m_errors = count; }
    // True when the local data of the generation must be rebuilt from the
    // storage (StartDeepSync) before it can be browsed or restored.
    bool deepSync() const { return m_deepSync; }
    void setDeepSync(bool needed) { m_deepSync = needed; }
    bool isEncrypted() const { return m_encrypted; }
    void setEncrypted(bool encrypted) { m_encrypted = encrypted; }
    // The password hint, base64-encoded as stored; empty when none was set.
    QByteArray hint() const { return m_hint; }
    void setHint(const QByteArray& base64) { m_hint = base64; }

    QJsonObject toJson() const;
    bool fromJson(const QJsonObject& object);

private:
    QString m_id;
    QDateTime m_first;
    QDateTime m_last;
    int m_warnings = 0;
    int m_errors = 0;
    bool m_deepSync = false;
    bool m_encrypted = false;
    QByteArray m_hint;
};

class RestorePoint
{
public:
    // The numbers are those of the stored format.
    enum class BackupType
    {
        Full = 0,
        SyntheticFull = 1,
        Incremental = 2,
    };
    enum class Status
    {
        Success = 0,
        Warning = 1,
        Failure = 2,
    };

    QString id() const { return m_id; }
    void setId(const QString& id) { m_id = id; }
    QString generationId() const { return m_generation; }
    void setGenerationId(const QString& id) { m_generation = id; }
    BackupType backupType() const { return m_type; }
    void setBackupType(BackupType type) { m_type = type; }
    QDateTime startDate() const { return m_start; }
    void setStartDate(const QDateTime& time) { m_start = time; }
    QDateTime endDate() const { return m_end; }
    void setEndDate(const QDateTime& time) { m_end = time; }
    Status status() const { return m_status; }
    void setStatus(Status status) { m_status = status; }
    bool deepSync() const { return m_deepSync; }
    void setDeepSync(bool needed) { m_deepSync = needed; }
    bool isEncrypted() const { return m_encrypted; }
    void setEncrypted(bool encrypted) { m_encrypted = encrypted; }

    QJsonObject toJson() const;
    bool fromJson(const QJsonObject& object);

private:
    QString m_id;
    QString m_generation;
    BackupType m_type = BackupType::Full;
    QDateTime m_start;
    QDateTime m_end;
    Status m_status = Status::Success;
    bool m_deepSync = false;
    bool m_encrypted = false;
};

// One entry of a restore point's folder.
class ContentObject
{
public:
    // "File", "Folder", "Symlink", ...
    QString typeName() const { return m_type; }
    void setTypeName(const QString& type) { m_type = type; }
    // The entry's absolute path as it was backed up.
    QString path() const { return m_path; }
    void setPath(const QString& path) { m_path = path; }
    qint64 size() const { return m_size; }
    void setSize(qint64 size) { m_size = size; }
    QDateTime modified() const { return m_modified; }
    void setModified(const QDateTime& time) { m_modified = time; }

    QJsonObject toJson() const;
    bool fromJson(const QJsonObject& object);

private:
    QString m_type;
    QString m_path;
    qint64 m_size = 0;
    QDateTime m_modified;
};

} // namespace Orv::Info::Repository
