#pragma once

#include "kelBackupFormat/Blob.h"
#include "kelStreams/Cipher.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>

namespace Kel::Archive {

// The kinds of backup a restore point can be.
enum class BackupType
{
    Full = 0,
    SyntheticFull = 1,
    Incremental = 2,
};
QString backupTypeName(BackupType type);

enum class PointStatus
{
    Success = 0,
    Warning = 1,
    Failure = 2,
};

// The record of a bunch: one backup plan's data in a storage. Readable
// without the password, since a storage listing names bunches by their plan.
struct BunchRecord
{
    QString id; // the plan's id, without braces
    QString planName;
    QDateTime created;

    QByteArray encode() const;
    static bool decode(const QByteArray& bytes, BunchRecord* record);
};

// The record of a generation: a full backup and the incrementals after it.
// It carries the generation's keys, sealed under a key derived from the
// password (scrypt), and the password hint; everything else in the
// generation is sealed under those keys.
struct GenerationRecord
{
    QString id;
    QString bunchId;
    QDateTime created;
    bool compression = false;
    QString algorithm; // "aes-128", "aes-192", "aes-256"; empty without encryption
    Kel::Streams::ScryptParameters kdf;
    QByteArray salt;
    QByteArray sealedKeys;
    QByteArray hint;

    bool encrypted() const { return !algorithm.isEmpty(); }
    static int keyBytes(const QString& algorithm); // 0 for an unknown name

    // A new generation with fresh keys sealed under the password (an empty
    // algorithm makes an unencrypted generation and ignores the password).
    static GenerationRecord create(const QString& id, const QString& bunchId,
                                   const QString& algorithm, const QByteArray& password,
                                   const QByteArray& hint, bool compression, KeySet* keys);
    // The same in two steps: the keys at once, then seal(), whose key
    // derivation is slow on purpose and can run beside the first blobs.
    static GenerationRecord unsealed(const QString& id, const QString& bunchId,
                                     const QString& algorithm, const QByteArray& hint,
                                     bool compression, KeySet* keys);
    void seal(const KeySet& keys, const QByteArray& password);
    // The keys; false when the password is wrong or the record was changed.
    bool unlock(const QByteArray& password, KeySet* keys) const;

    QByteArray encode() const;
    static bool decode(const QByteArray& bytes, GenerationRecord* record);
};

// A restore point: the commit record of one run. Its clear part is what a
// listing shows without the password; the sealed part says where the data is.
struct PointRecord
{
    // Clear.
    QString id; // sortable by start time
    BackupType type = BackupType::Full;
    QDateTime start;
    QDateTime end;
    PointStatus status = PointStatus::Success;
    int warnings = 0;
    int errors = 0;
    // Sealed.
    QByteArray root; // id of the tree that holds the sources' absolute paths
    int indexes = 0; // index objects of the run: <run>.0, <run>.1, ...
    quint64 files = 0;
    quint64 bytes = 0;

    QByteArray encode(BlobCodec& codec) const;
    // Only the clear part; false when the bytes are not a restore point.
    static bool decodeHeader(const QByteArray& bytes, PointRecord* record);
    // Both parts; false when damaged or sealed under other keys.
    static bool decode(const QByteArray& bytes, BlobCodec& codec, PointRecord* record);
};

// Object names of the new format in a storage, below the account's prefix.
// Each kind of record has a folder of its own, so that a listing by prefix
// returns just the records asked for, never a generation's packs:
//   nbf/bunches/<bunch>                      bunch records
//   nbf/<bunch>/generations/<gen>            generation records (with the keys)
//   nbf/<bunch>/points/<gen>/<run>           restore points (a run's commit)
//   nbf/<bunch>/data/<gen>/index/<run>       the index of a run's packs
//   nbf/<bunch>/data/<gen>/packs/<xx>/<pack> packs
class Layout
{
public:
    explicit Layout(const QString& prefix);

    QString bunches() const { return m_root + QStringLiteral("bunches/"); }
    QString bunchRecord(const QString& bunch) const { return bunches() + bunch; }
    QString bunch(const QString& bunch) const { return m_root + bunch + '/'; }
    QString generations(const QString& bunch) const
    {
        return this->bunch(bunch) + QStringLiteral("generations/");
    }
    QString generationRecord(const QString& bunch, const QString& gen) const
    {
        return generations(bunch) + gen;
    }
    QString points(const QString& bunch) const
    {
        return this->bunch(bunch) + QStringLiteral("points/");
    }
    QString points(const QString& bunch, const QString& gen) const
    {
        return points(bunch) + gen + '/';
    }
    QString point(const QString& bunch, const QString& gen, const QString& run) const
    {
        return points(bunch, gen) + run;
    }
    QString data(const QString& bunch, const QString& gen) const
    {
        return this->bunch(bunch) + QStringLiteral("data/") + gen + '/';
    }
    QString indexes(const QString& bunch, const QString& gen) const
    {
        return data(bunch, gen) + QStringLiteral("index/");
    }
    QString index(const QString& bunch, const QString& gen, const QString& run, int part) const
    {
        return indexes(bunch, gen) + run + '.' + QString::number(part);
    }
    QString packs(const QString& bunch, const QString& gen) const
    {
        return data(bunch, gen) + QStringLiteral("packs/");
    }
    QString pack(const QString& bunch, const QString& gen, const QByteArray& name) const;

    // A fresh id for a generation or a run, sortable by time.
    static QString newId(const QDateTime& when);

private:
    QString m_root;
};

} // namespace Kel::Archive
