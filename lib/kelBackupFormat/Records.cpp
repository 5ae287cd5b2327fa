#include "kelBackupFormat/Records.h"

#include "kelBackupFormat/Bytes.h"
#include "kelStreams/Hash.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace Kel::Archive {

namespace {

// The largest key derivation a stored record may ask for: 128 MiB and about
// 64 times the work of the parameters written today.
constexpr quint64 kMaxScryptN = quint64(1) << 20;
constexpr quint32 kMaxScryptR = 16;
constexpr quint32 kMaxScryptP = 16;

constexpr char kPointMagic[] = "ORP1";
constexpr int kFormatVersion = 1;

QJsonObject parseObject(const QByteArray& bytes, bool* ok)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &error);
    *ok = error.error == QJsonParseError::NoError && doc.isObject() &&
          doc.object().value("version").toInt() == kFormatVersion;
    return doc.object();
}

QString timeText(const QDateTime& t)
{
    return t.toUTC().toString(Qt::ISODateWithMs);
}

QDateTime parseTime(const QJsonValue& value)
{
    return QDateTime::fromString(value.toString(), Qt::ISODateWithMs);
}

QByteArray bytesOf(const QJsonValue& value)
{
    return QByteArray::fromBase64(value.toString().toLatin1());
}

QString base64(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toBase64());
}

} // namespace

QString backupTypeName(BackupType type)
{
    switch (type) {
    case BackupType::Full:
        return QStringLiteral("Full");
    case BackupType::SyntheticFull:
        return QStringLiteral("SyntheticFull");
    case BackupType::Incremental:
        return QStringLiteral("Incremental");
    }
    return QString();
}

QByteArray BunchRecord::encode() const
{
    QJsonObject o{{"version", kFormatVersion},
                  {"format", "nbf"},
                  {"id", id},
                  {"plan", planName},
                  {"created", timeText(created)}};
    return QJsonDocument(o).toJson(QJsonDocument::Compact);
}

bool BunchRecord::decode(const QByteArray& bytes, BunchRecord* record)
{
    bool ok = false;
    const QJsonObject o = parseObject(bytes, &ok);
    record->id = o.value("id").toString();
    record->planName = o.value("plan").toString();
    record->created = parseTime(o.value("created"));
    return ok && !record->id.isEmpty();
}

int GenerationRecord::keyBytes(const QString& algorithm)
{
    if (algorithm == QLatin1String("aes-128")) {
        return 16;
    }
    if (algorithm == QLatin1String("aes-192")) {
        return 24;
    }
    if (algorithm == QLatin1String("aes-256")) {
        return 32;
    }
    return 0;
}

GenerationRecord GenerationRecord::create(const QString& id, const QString& bunchId,
                                          const QString& algorithm, const QByteArray& password,
                                          const QByteArray& hint, bool compression, KeySet* keys)
{
    GenerationRecord record = unsealed(id, bunchId, algorithm, hint, compression, keys);
    record.seal(*keys, password);
    return record;
}

GenerationRecord GenerationRecord::unsealed(const QString& id, const QString& bunchId,
                                            const QString& algorithm, const QByteArray& hint,
                                            bool compression, KeySet* keys)
{
    GenerationRecord record;
    record.id = id;
    record.bunchId = bunchId;
    record.created = QDateTime::currentDateTimeUtc();
    record.compression = compression;
    *keys = KeySet::generate(keyBytes(algorithm));
    if (!keys->encrypted()) {
        return record;
    }
    record.algorithm = algorithm;
    record.hint = hint;
    record.salt = Kel::Streams::randomBytes(32);
    return record;
}

void GenerationRecord::seal(const KeySet& keys, const QByteArray& password)
{
    if (!encrypted()) {
        return;
    }
    const QByteArray wrapKey = Kel::Streams::deriveKey(password, salt, kdf, 32);
    Kel::Streams::Cipher cipher(wrapKey);
    const QByteArray plain = keys.encode();
    cipher.seal(plain.constData(), std::size_t(plain.size()), &sealedKeys, id.toUtf8());
}

bool GenerationRecord::unlock(const QByteArray& password, KeySet* keys) const
{
    if (!encrypted()) {
        *keys = KeySet();
        return true;
    }
    const QByteArray wrapKey = Kel::Streams::deriveKey(password, salt, kdf, 32);
    Kel::Streams::Cipher cipher(wrapKey);
    QByteArray plain;
    return cipher.open(sealedKeys.constData(), std::size_t(sealedKeys.size()), &plain,
                       id.toUtf8()) &&
           KeySet::decode(plain, keys) && keys->dataKey.size() == keyBytes(algorithm);
}

QByteArray GenerationRecord::encode() const
{
    QJsonObject o{{"version", kFormatVersion},
                  {"id", id},
                  {"bunch", bunchId},
                  {"created", timeText(created)},
                  {"compression", compression}};
    if (encrypted()) {
        o.insert("algorithm", algorithm);
        o.insert("kdf", QJsonObject{{"name", "scrypt"},
                                    {"n", double(kdf.n)},
                                    {"r", double(kdf.r)},
                                    {"p", double(kdf.p)},
                                    {"salt", base64(salt)}});
        o.insert("keys", base64(sealedKeys));
        o.insert("hint", base64(hint));
    }
    return QJsonDocument(o).toJson(QJsonDocument::Compact);
}

bool GenerationRecord::decode(const QByteArray& bytes, GenerationRecord* record)
{
    bool ok = false;
    const QJsonObject o = parseObject(bytes, &ok);
    record->id = o.value("id").toString();
    record->bunchId = o.value("bunch").toString();
    record->created = parseTime(o.value("created"));
    record->compression = o.value("compression").toBool();
    record->algorithm = o.value("algorithm").toString();
    if (record->encrypted()) {
        const QJsonObject kdf = o.value("kdf").toObject();
        record->kdf.n = quint64(kdf.value("n").toDouble());
        record->kdf.r = quint32(kdf.value("r").toDouble());
        record->kdf.p = quint32(kdf.value("p").toDouble());
        record->salt = bytesOf(kdf.value("salt"));
        record->sealedKeys = bytesOf(o.value("keys"));
        record->hint = bytesOf(o.value("hint"));
        // A record from the storage must not make us derive with parameters
        // that take gigabytes or hours: far above what we write, refused.
        ok = ok && keyBytes(record->algorithm) > 0 && kdf.value("name").toString() == "scrypt" &&
             record->kdf.n <= kMaxScryptN && record->kdf.r <= kMaxScryptR &&
             record->kdf.p <= kMaxScryptP;
    }
    return ok && !record->id.isEmpty();
}

QByteArray PointRecord::encode(BlobCodec& codec) const
{
    static const char* const kStatus[] = {"success", "warning", "failure"};
    const QJsonObject clear{{"version", kFormatVersion},    {"id", id},
                            {"type", backupTypeName(type)}, {"start", timeText(start)},
                            {"end", timeText(end)},         {"status", kStatus[int(status)]},
                            {"warnings", warnings},         {"errors", errors}};
    const QJsonObject hidden{{"root", QString::fromLatin1(root.toHex())},
                             {"indexes", indexes},
                             {"files", double(files)},
                             {"bytes", double(bytes)}};
    const QByteArray header = QJsonDocument(clear).toJson(QJsonDocument::Compact);
    QByteArray out(kPointMagic, 4);
    ByteWriter w(&out);
    w.bytes(header);
    // The clear part is bound to the sealed one, so neither can be swapped.
    out.append(codec.seal(QJsonDocument(hidden).toJson(QJsonDocument::Compact), header));
    return out;
}

bool PointRecord::decodeHeader(const QByteArray& bytes, PointRecord* record)
{
    if (!bytes.startsWith(QByteArray(kPointMagic, 4))) {
        return false;
    }
    ByteReader r(bytes.constData() + 4, bytes.size() - 4);
    const QByteArray header = r.bytes();
    bool ok = r.ok();
    const QJsonObject o = parseObject(header, &ok);
    record->id = o.value("id").toString();
    const QString type = o.value("type").toString();
    record->type = type == "Incremental"     ? BackupType::Incremental
                   : type == "SyntheticFull" ? BackupType::SyntheticFull
                                             : BackupType::Full;
    record->start = parseTime(o.value("start"));
    record->end = parseTime(o.value("end"));
    const QString status = o.value("status").toString();
    record->status = status == "failure"   ? PointStatus::Failure
                     : status == "warning" ? PointStatus::Warning
                                           : PointStatus::Success;
    record->warnings = o.value("warnings").toInt();
    record->errors = o.value("errors").toInt();
    return ok && r.ok() && !record->id.isEmpty() && record->start.isValid();
}

bool PointRecord::decode(const QByteArray& bytes, BlobCodec& codec, PointRecord* record)
{
    if (!decodeHeader(bytes, record)) {
        return false;
    }
    ByteReader r(bytes.constData() + 4, bytes.size() - 4);
    const QByteArray header = r.bytes();
    const QByteArray sealed = bytes.mid(bytes.size() - int(r.remaining()));
    QByteArray plain;
    if (!codec.open(sealed, header, &plain)) {
        return false;
    }
    bool ok = false;
    QJsonParseError error;
    const QJsonObject o = QJsonDocument::fromJson(plain, &error).object();
    ok = error.error == QJsonParseError::NoError;
    record->root = QByteArray::fromHex(o.value("root").toString().toLatin1());
    record->indexes = o.value("indexes").toInt();
    record->files = quint64(o.value("files").toDouble());
    record->bytes = quint64(o.value("bytes").toDouble());
    return ok && record->root.size() == 32 && record->indexes >= 0;
}

Layout::Layout(const QString& prefix)
{
    m_root = prefix.isEmpty() ? QStringLiteral("nbf/") : prefix + QStringLiteral("/nbf/");
}

QString Layout::pack(const QString& bunch, const QString& gen, const QByteArray& name) const
{
    return packs(bunch, gen) + QString::fromLatin1(name.left(2)) + '/' + QString::fromLatin1(name);
}

QString Layout::newId(const QDateTime& when)
{
    return when.toUTC().toString(QStringLiteral("yyyyMMdd'T'HHmmsszzz'Z'-")) +
           QString::fromLatin1(Kel::Streams::randomBytes(4).toHex());
}

} // namespace Kel::Archive
