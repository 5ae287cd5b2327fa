#pragma once

#include "kelBackupFormat/Blob.h"

#include <QByteArray>
#include <QVector>
#include <functional>

namespace Kel::Archive {

// The blobs of one pack, as its header and the indexes list them.
struct PackRecord
{
    QByteArray name; // 32 lower-case hex digits, random
    QVector<BlobEntry> entries;
};

// Collects stored blobs into one pack object: the blobs one after the other,
// then the sealed header that lists them, then the header's length in four
// bytes. The header makes a pack readable on its own, so that a lost index
// can be rebuilt from the packs.
class PackBuilder
{
public:
    // Takes the pack's bytes as they come; false when they could not be kept.
    using Sink = std::function<bool(const QByteArray& bytes)>;

    // With a sink, every blob goes to it as soon as it is encoded (a
    // temporary file, so that a pack being built costs no memory); without
    // one the pack is built in memory.
    explicit PackBuilder(Sink sink = Sink());

    const QByteArray& name() const { return m_record.name; }
    qint64 size() const { return m_written + m_data.size(); }
    bool isEmpty() const { return m_record.entries.isEmpty(); }
    const PackRecord& record() const { return m_record; }
    // False once a write to the sink failed.
    bool ok() const { return m_ok; }

    // Encodes the data straight into the pack.
    const BlobEntry& add(BlobCodec& codec, const QByteArray& id, BlobType type, const char* data,
                         std::size_t length);
    // Appends the header. Without a sink, returns the whole object.
    QByteArray finish(BlobCodec& codec);

private:
    void drain();

    PackRecord m_record;
    Sink m_sink;
    QByteArray m_data;
    qint64 m_written = 0;
    bool m_ok = true;
};

// The header at the end of a whole pack object; false when it is damaged or
// sealed under another key.
bool readPackHeader(const QByteArray& pack, const QByteArray& name, BlobCodec& codec,
                    PackRecord* record);

// An index: the packs of one run and their blobs, sealed as one record.
QByteArray encodeIndex(const QVector<PackRecord>& packs, BlobCodec& codec,
                       const QByteArray& associated);
bool decodeIndex(const QByteArray& sealed, BlobCodec& codec, const QByteArray& associated,
                 QVector<PackRecord>* packs);

} // namespace Kel::Archive
