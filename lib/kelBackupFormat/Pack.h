#pragma once

#include "kelBackupFormat/Blob.h"

#include <QByteArray>
#include <QVector>

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
    PackBuilder();

    const QByteArray& name() const { return m_record.name; }
    qint64 size() const { return m_data.size(); }
    bool isEmpty() const { return m_record.entries.isEmpty(); }
    const PackRecord& record() const { return m_record; }

    void add(const QByteArray& id, BlobType type, const QByteArray& stored, quint32 rawLength,
             bool compressed);
    // The whole object; the builder is empty afterwards but for the record.
    QByteArray finish(BlobCodec& codec);

private:
    PackRecord m_record;
    QByteArray m_data;
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
