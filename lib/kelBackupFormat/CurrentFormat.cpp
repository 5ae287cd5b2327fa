#include "kelBackupFormat/CurrentFormat.h"

#include "kelBackupFormat/Bytes.h"
#include "kelStreams/Compressor.h"
#include "kelStreams/Hash.h"

#include <QIODevice>
#include <QJsonDocument>
#include <QJsonObject>

namespace Kel::Archive {

namespace {

constexpr char kObjectMagic[] = "ORC1";
constexpr int kFormatVersion = 1;
// Object names are at most 1024 bytes; the rest of the name needs room.
constexpr int kMaxReadableKey = 700;
constexpr int kDigestSize = 8;
constexpr quint8 kCompressed = 1;
constexpr quint8 kLast = 2;
// zstd level 3, as the new format: smaller than level 1 on text, no slower.
constexpr int kCompressionLevel = 3;

bool plainByte(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '-' || c == '_' || c == ' ' || c == '+' || c == ',' || c == '=';
}

QString hashedKey(const QByteArray& path, const QByteArray& idKey)
{
    const QByteArray hex = Kel::Streams::IdHasher(idKey).id(path).toHex();
    return QStringLiteral("h/") + QString::fromLatin1(hex.left(2)) + '/' + QString::fromLatin1(hex);
}

// 128 bits of a digest in lowercase base32: shorter than hex, and safe on
// stores that do not tell upper from lower case.
QString base32(const QByteArray& digest)
{
    static const char kAlphabet[] = "abcdefghijklmnopqrstuvwxyz234567";
    QString out;
    quint32 buffer = 0;
    int bits = 0;
    for (int i = 0; i < 16; ++i) {
        buffer = (buffer << 8) | quint8(digest.at(i));
        bits += 8;
        while (bits >= 5) {
            bits -= 5;
            out += QLatin1Char(kAlphabet[(buffer >> bits) & 31]);
        }
    }
    return out + QLatin1Char(kAlphabet[(buffer << (5 - bits)) & 31]);
}

// Each part of the path becomes a keyed digest of the path up to it: the
// tree keeps its shape, while equal names in different folders look
// different and nothing of a name can be read or guessed without the key.
QString sealedTreeKey(const QByteArray& path, const QByteArray& idKey)
{
    Kel::Streams::IdHasher hasher(idKey);
    QString key = QStringLiteral("e");
    QByteArray upTo;
    for (const QByteArray& part : path.split('/')) {
        if (part.isEmpty()) {
            continue;
        }
        upTo += '/' + part;
        key += '/' + base32(hasher.id(upTo));
        if (key.size() > kMaxReadableKey) {
            return hashedKey(path, idKey);
        }
    }
    return key;
}

QByteArray pieceContext(const QString& name, quint64 index, quint8 flags, quint64 rawLength)
{
    QByteArray context = name.toUtf8();
    ByteWriter w(&context);
    w.number(index);
    w.byte(flags);
    w.number(rawLength);
    return context;
}

QByteArray digest(const QByteArray& context, const char* data, std::size_t size)
{
    QByteArray all = context;
    all.append(data, int(size));
    return Kel::Streams::sha256(all).left(kDigestSize);
}

bool readNumber(QIODevice* source, quint64* value)
{
    *value = 0;
    for (int shift = 0; shift < 64; shift += 7) {
        char c = 0;
        if (!source->getChar(&c)) {
            return false;
        }
        *value |= quint64(quint8(c) & 0x7f) << shift;
        if (!(quint8(c) & 0x80)) {
            return true;
        }
    }
    return false;
}

bool readExactly(QIODevice* source, qint64 size, QByteArray* out)
{
    out->resize(int(size));
    qint64 done = 0;
    while (done < size) {
        const qint64 n = source->read(out->data() + done, size - done);
        if (n <= 0) {
            return false;
        }
        done += n;
    }
    return true;
}

void encodeNode(ByteWriter& w, const Node& n)
{
    w.byte(quint8(n.type));
    w.number(n.mode);
    w.number(n.uid);
    w.number(n.gid);
    w.signedNumber(n.mtimeNs);
    w.signedNumber(n.ctimeNs);
    w.number(n.device);
    w.number(n.inode);
    w.number(n.links);
    w.number(n.size);
    w.number(n.rdev);
    w.bytes(n.linkTarget);
}

void decodeNode(ByteReader& r, Node* n)
{
    const quint8 type = r.byte();
    n->type = type <= quint8(Node::Type::BlockDevice) ? Node::Type(type) : Node::Type::File;
    n->mode = quint32(r.number()) & 07777;
    n->uid = quint32(r.number());
    n->gid = quint32(r.number());
    n->mtimeNs = r.signedNumber();
    n->ctimeNs = r.signedNumber();
    n->device = r.number();
    n->inode = r.number();
    n->links = quint32(r.number());
    n->size = r.number();
    n->rdev = r.number();
    n->linkTarget = r.bytes();
}

} // namespace

CurrentLayout::CurrentLayout(const QString& prefix)
{
    m_root = prefix.isEmpty() ? QStringLiteral("cbf/") : prefix + QStringLiteral("/cbf/");
}

QString CurrentLayout::pathKey(const QByteArray& path, const QByteArray& idKey)
{
    if (!idKey.isEmpty()) {
        return sealedTreeKey(path, idKey);
    }
    // Each part escaped on its own, so that "/" stays the separator; "@"
    // starts version names and is always escaped in parts.
    QString key = QStringLiteral("p");
    for (const QByteArray& part : path.split('/')) {
        if (part.isEmpty()) {
            continue;
        }
        key += '/';
        for (const char c : part) {
            key += plainByte(c) ? QString(QLatin1Char(c))
                                : QStringLiteral("%%1").arg(quint8(c), 2, 16, QLatin1Char('0'));
        }
        if (part == "." || part == ".." || key.size() > kMaxReadableKey) {
            return hashedKey(path, idKey);
        }
    }
    return key;
}

QDateTime CurrentLayout::runTime(const QString& run)
{
    QDateTime t = QDateTime::fromString(run.left(18), QStringLiteral("yyyyMMdd'T'HHmmsszzz"));
    t.setTimeSpec(Qt::UTC);
    return run.size() > 19 && run.at(18) == 'Z' ? t : QDateTime();
}

QByteArray ManifestEntry::encode() const
{
    QByteArray out;
    ByteWriter w(&out);
    w.bytes(path);
    encodeNode(w, node);
    w.bytes(version.toLatin1());
    w.bytes(hardLinkTo);
    // Written only when set, so that entries of full versions keep the
    // shape they always had.
    if (!base.isEmpty()) {
        w.bytes(base.toLatin1());
    }
    return out;
}

bool ManifestEntry::decode(const QByteArray& bytes, ManifestEntry* entry)
{
    ByteReader r(bytes);
    entry->path = r.bytes();
    decodeNode(r, &entry->node);
    entry->version = QString::fromLatin1(r.bytes());
    entry->hardLinkTo = r.bytes();
    entry->base = r.ok() && !r.atEnd() ? QString::fromLatin1(r.bytes()) : QString();
    entry->node.name = entry->path.mid(entry->path.lastIndexOf('/') + 1);
    return r.ok() && r.atEnd() && entry->path.startsWith('/');
}

QByteArray ManifestHeader::encode() const
{
    static const char* const kStatus[] = {"success", "warning", "failure"};
    QJsonObject o{{"version", kFormatVersion},
                  {"run", run},
                  {"start", start.toUTC().toString(Qt::ISODateWithMs)},
                  {"end", end.toUTC().toString(Qt::ISODateWithMs)},
                  {"status", kStatus[int(status)]},
                  {"warnings", warnings},
                  {"errors", errors}};
    if (!planName.isEmpty()) {
        o.insert("plan", planName);
    }
    if (!base.isEmpty()) {
        o.insert("base", base);
    }
    if (full) {
        o.insert("full", true);
    }
    return QJsonDocument(o).toJson(QJsonDocument::Compact);
}

bool ManifestHeader::decode(const QByteArray& bytes, ManifestHeader* header)
{
    QJsonParseError error;
    const QJsonObject o = QJsonDocument::fromJson(bytes, &error).object();
    header->run = o.value("run").toString();
    header->planName = o.value("plan").toString();
    header->base = o.value("base").toString();
    header->full = o.value("full").toBool();
    header->start = QDateTime::fromString(o.value("start").toString(), Qt::ISODateWithMs);
    header->end = QDateTime::fromString(o.value("end").toString(), Qt::ISODateWithMs);
    const QString status = o.value("status").toString();
    header->status = status == "failure"   ? PointStatus::Failure
                     : status == "warning" ? PointStatus::Warning
                                           : PointStatus::Success;
    header->warnings = o.value("warnings").toInt();
    header->errors = o.value("errors").toInt();
    return error.error == QJsonParseError::NoError &&
           o.value("version").toInt() == kFormatVersion && !header->run.isEmpty();
}

bool readManifestHeader(const QByteArray& bytes, ManifestHeader* header)
{
    if (!bytes.startsWith(QByteArray(kObjectMagic, 4))) {
        return false;
    }
    ByteReader r(bytes.constData() + 4, bytes.size() - 4);
    const QByteArray clear = r.bytes();
    return r.ok() && ManifestHeader::decode(clear, header);
}

PieceWriter::PieceWriter(QIODevice* sink, const KeySet& keys, bool compress, const QString& name,
                         const QByteArray& clear)
    : m_sink(sink), m_codec(keys, false), m_name(name)
{
    if (compress) {
        m_compressor = std::make_unique<Kel::Streams::Compressor>(kCompressionLevel);
    }
    QByteArray head(kObjectMagic, 4);
    ByteWriter w(&head);
    w.bytes(clear);
    m_sink->write(head);
    m_encrypted = keys.encrypted();
}

PieceWriter::~PieceWriter() = default;

bool PieceWriter::write(const char* data, std::size_t size, bool last)
{
    const char* plain = data;
    std::size_t plainSize = size;
    if (m_compressor) {
        std::size_t n = 0;
        if (const char* packed = m_compressor->compressView(data, size, &n)) {
            plain = packed;
            plainSize = n;
        }
    }
    const quint8 flags = quint8((plain != data ? kCompressed : 0) | (last ? kLast : 0));
    const QByteArray context = pieceContext(m_name, m_index++, flags, size);
    m_buffer.clear();
    ByteWriter w(&m_buffer);
    w.byte(flags);
    w.number(size);
    if (m_encrypted) {
        const QByteArray sealed =
            m_codec.seal(QByteArray::fromRawData(plain, int(plainSize)), context);
        w.bytes(sealed);
    } else {
        w.number(plainSize + kDigestSize);
        m_buffer.append(plain, int(plainSize));
        m_buffer.append(digest(context, data, size));
    }
    return m_sink->write(m_buffer) == m_buffer.size();
}

PieceReader::PieceReader(QIODevice* source, const KeySet& keys, const QString& name)
    : m_source(source), m_codec(keys, false), m_name(name), m_encrypted(keys.encrypted())
{
}

PieceReader::~PieceReader() = default;

bool PieceReader::start(QByteArray* clear)
{
    QByteArray magic;
    quint64 size = 0;
    return readExactly(m_source, 4, &magic) && magic == QByteArray(kObjectMagic, 4) &&
           readNumber(m_source, &size) && size < (1u << 20) &&
           readExactly(m_source, qint64(size), clear);
}

bool PieceReader::next(QByteArray* data)
{
    char flagByte = 0;
    quint64 rawLength = 0;
    quint64 storedLength = 0;
    if (m_last || !m_source->getChar(&flagByte) || !readNumber(m_source, &rawLength) ||
        !readNumber(m_source, &storedLength) || storedLength > (1u << 30) ||
        rawLength > (1u << 30)) {
        return false;
    }
    const quint8 flags = quint8(flagByte);
    QByteArray stored;
    if (!readExactly(m_source, qint64(storedLength), &stored)) {
        return false;
    }
    const QByteArray context = pieceContext(m_name, m_index++, flags, rawLength);
    QByteArray plain;
    if (m_encrypted) {
        if (!m_codec.open(stored, context, &plain)) {
            return false;
        }
    } else {
        if (stored.size() < kDigestSize) {
            return false;
        }
        plain = stored.left(stored.size() - kDigestSize);
    }
    if (flags & kCompressed) {
        if (!Kel::Streams::decompress(plain.constData(), std::size_t(plain.size()),
                                      std::size_t(rawLength), data)) {
            return false;
        }
    } else {
        *data = plain;
    }
    if (quint64(data->size()) != rawLength) {
        return false;
    }
    if (!m_encrypted && stored.right(kDigestSize) !=
                            digest(context, data->constData(), std::size_t(data->size()))) {
        return false;
    }
    m_last = flags & kLast;
    return true;
}

bool PieceReader::skip(quint64* rawLength)
{
    char flagByte = 0;
    quint64 storedLength = 0;
    if (m_last || !m_source->getChar(&flagByte) || !readNumber(m_source, rawLength) ||
        !readNumber(m_source, &storedLength) || storedLength > (1u << 30) ||
        *rawLength > (1u << 30)) {
        return false;
    }
    const qint64 end = m_source->pos() + qint64(storedLength);
    if (end > m_source->size() || !m_source->seek(end)) {
        return false;
    }
    ++m_index;
    m_last = quint8(flagByte) & kLast;
    return true;
}

void PieceReader::seek(quint64 index, qint64 position)
{
    m_source->seek(position);
    m_index = index;
    m_last = false;
}

} // namespace Kel::Archive
