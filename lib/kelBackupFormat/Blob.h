#pragma once

#include <QByteArray>
#include <QVector>
#include <memory>

namespace Kel::Streams {
class Cipher;
class Compressor;
class IdHasher;
} // namespace Kel::Streams

namespace Kel::Archive {

enum class BlobType : quint8
{
    Data = 0, // a chunk of file content
    Tree = 1, // a folder listing
};

// Where one stored piece of data sits inside its pack.
struct BlobEntry
{
    QByteArray id; // 32 bytes
    BlobType type = BlobType::Data;
    quint64 offset = 0;       // in the pack
    quint32 storedLength = 0; // bytes in the pack (sealed, compressed)
    quint32 rawLength = 0;    // bytes of the original data
    bool compressed = false;
};

// The secrets of one generation: the data key (16, 24 or 32 bytes: the
// algorithm), the key of the content ids and the chunker's seed. Without
// encryption all are empty or zero.
struct KeySet
{
    QByteArray dataKey;
    QByteArray idKey;
    quint64 chunkerSeed = 0;

    bool encrypted() const { return !dataKey.isEmpty(); }
    static KeySet generate(int keyBytes);
    QByteArray encode() const;
    static bool decode(const QByteArray& bytes, KeySet* keys);
};

// Turns data into its stored form and back, for one thread: compressed when
// asked and worth it, sealed under the data key (with the id as associated
// data, so that a blob cannot be passed off as another) when encrypting.
class BlobCodec
{
public:
    BlobCodec(const KeySet& keys, bool compress);
    ~BlobCodec();
    BlobCodec(const BlobCodec&) = delete;
    BlobCodec& operator=(const BlobCodec&) = delete;

    QByteArray id(const char* data, std::size_t size);
    QByteArray id(const QByteArray& data) { return id(data.constData(), std::size_t(data.size())); }

    // Appends the stored bytes of data whose id is given to *out (a pack
    // being built, so that nothing is copied on the way); *compressed tells
    // how. Returns the number of bytes appended.
    qsizetype encodeInto(const char* data, std::size_t size, const QByteArray& id, QByteArray* out,
                         bool* compressed);
    // The original data of a stored blob, checked against its id; false when
    // the bytes were changed, belong to another key, or do not match.
    bool decode(const char* stored, std::size_t size, const BlobEntry& entry, QByteArray* data);

    // Whole records (pack headers, indexes, restore points): sealed when
    // encrypting, as they are otherwise.
    QByteArray seal(const QByteArray& plain, const QByteArray& associated);
    bool open(const QByteArray& sealed, const QByteArray& associated, QByteArray* plain);

private:
    std::unique_ptr<Kel::Streams::IdHasher> m_hasher;
    std::unique_ptr<Kel::Streams::Compressor> m_compressor;
    std::unique_ptr<Kel::Streams::Cipher> m_cipher;
};

} // namespace Kel::Archive
