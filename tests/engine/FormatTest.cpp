// The stored records read back exactly, and no damaged or cut record is
// ever taken for data or crashes the reader.
#include "kelBackupFormat/Pack.h"
#include "kelBackupFormat/Records.h"
#include "kelBackupFormat/Tree.h"

#include <functional>
#include <gtest/gtest.h>
#include <random>

using namespace Kel::Archive;

namespace {

QVector<Node> sampleNodes()
{
    Node file;
    file.name = QByteArray("bad\xff name\n", 10);
    file.mode = 04755;
    file.uid = 1234;
    file.gid = 5678;
    file.mtimeNs = -1; // before the epoch
    file.size = 3;
    file.links = 2;
    file.chunks = {QByteArray(32, 'a'), QByteArray(32, 'b')};
    Node folder;
    folder.name = "folder";
    folder.type = Node::Type::Directory;
    folder.subtree = QByteArray(32, 'c');
    Node link;
    link.name = "link";
    link.type = Node::Type::Symlink;
    link.linkTarget = "../elsewhere";
    return {file, folder, link};
}

// Every cut and a sweep of flipped bytes of a valid record: the reader
// refuses each or, for a flip it cannot see, gives the original back.
void damageEverywhere(const QByteArray& valid, const std::function<bool(const QByteArray&)>& reads)
{
    ASSERT_TRUE(reads(valid));
    for (int length = 0; length < valid.size(); ++length) {
        EXPECT_FALSE(reads(valid.left(length))) << "cut at " << length;
    }
    std::mt19937 random(7);
    for (int i = 0; i < 300; ++i) {
        QByteArray damaged = valid;
        const int at = int(random() % quint32(valid.size()));
        damaged[at] = char(damaged.at(at) ^ (1 << (random() % 8)));
        reads(damaged); // must not crash; sealed records must refuse it
    }
}

TEST(Format, TreesRoundTripAndRefuseDamage)
{
    const QVector<Node> nodes = sampleNodes();
    const QByteArray bytes = encodeTree(nodes);
    QVector<Node> back;
    ASSERT_TRUE(decodeTree(bytes, &back));
    ASSERT_EQ(back.size(), nodes.size());
    EXPECT_EQ(encodeTree(back), bytes) << "one listing, one encoding";
    EXPECT_EQ(back.first().name, nodes.first().name);
    EXPECT_EQ(back.first().mtimeNs, -1);
    EXPECT_EQ(back.first().chunks, nodes.first().chunks);
    damageEverywhere(bytes, [](const QByteArray& b) {
        QVector<Node> n;
        return decodeTree(b, &n);
    });

    for (const QByteArray& name : {QByteArray(".."), QByteArray("."), QByteArray("a/b"),
                                   QByteArray(), QByteArray("a\0b", 3)}) {
        QVector<Node> bad = nodes;
        bad.first().name = name;
        QVector<Node> out;
        EXPECT_FALSE(decodeTree(encodeTree(bad), &out)) << name.toHex().constData();
    }
    QVector<Node> unsorted = {nodes.at(1), nodes.at(0)};
    QVector<Node> out;
    EXPECT_FALSE(decodeTree(encodeTree(unsorted), &out));
}

TEST(Format, SealedRecordsRefuseEveryDamage)
{
    KeySet keys = KeySet::generate(32);
    BlobCodec codec(keys, true);
    PackBuilder pack;
    const QByteArray data(100000, 'x');
    pack.add(codec, codec.id(data), BlobType::Data, data.constData(), std::size_t(data.size()));
    const QByteArray object = pack.finish(codec);
    damageEverywhere(object, [&](const QByteArray& b) {
        PackRecord record;
        return readPackHeader(b, pack.name(), codec, &record);
    });

    const QByteArray index = encodeIndex({pack.record()}, codec, "index/a.0");
    damageEverywhere(index, [&](const QByteArray& b) {
        QVector<PackRecord> packs;
        const bool ok = decodeIndex(b, codec, "index/a.0", &packs);
        EXPECT_TRUE(!ok || b == index);
        return ok;
    });
    QVector<PackRecord> packs;
    EXPECT_FALSE(decodeIndex(index, codec, "index/b.0", &packs)) << "bound to its name";

    PointRecord point;
    point.id = "20261123T000000000Z-0a0b0c0d";
    point.start = QDateTime::fromMSecsSinceEpoch(1, Qt::UTC);
    point.root = QByteArray(32, 'r');
    const QByteArray bytes = point.encode(codec);
    damageEverywhere(bytes, [&](const QByteArray& b) {
        PointRecord back;
        const bool ok = PointRecord::decode(b, codec, &back);
        EXPECT_TRUE(!ok || b == bytes);
        return ok;
    });

    // The same blob under other keys is refused, not decoded into garbage.
    const BlobEntry& entry = pack.record().entries.first();
    BlobCodec stranger(KeySet::generate(32), true);
    QByteArray out;
    EXPECT_TRUE(codec.decode(object.constData() + entry.offset, entry.storedLength, entry, &out));
    EXPECT_EQ(out, data);
    EXPECT_FALSE(
        stranger.decode(object.constData() + entry.offset, entry.storedLength, entry, &out));
}

TEST(Format, GenerationKeysOpenOnlyWithTheirPassword)
{
    for (const char* algorithm : {"aes-128", "aes-192", "aes-256"}) {
        KeySet keys;
        const GenerationRecord record =
            GenerationRecord::create("gen", "bunch", algorithm, "secret", "hint", true, &keys);
        GenerationRecord back;
        ASSERT_TRUE(GenerationRecord::decode(record.encode(), &back)) << algorithm;
        KeySet opened;
        EXPECT_FALSE(back.unlock("Secret", &opened)) << algorithm;
        ASSERT_TRUE(back.unlock("secret", &opened)) << algorithm;
        EXPECT_EQ(opened.dataKey, keys.dataKey);
        EXPECT_EQ(opened.dataKey.size(), GenerationRecord::keyBytes(algorithm));
        EXPECT_EQ(back.hint, QByteArray("hint"));
        EXPECT_FALSE(record.encode().contains(keys.dataKey.toBase64())) << "keys sealed";
    }
    // A record asking for a derivation of 64 GiB is refused before any is tried.
    KeySet keys;
    GenerationRecord greedy = GenerationRecord::create("g", "b", "aes-256", "s", "", true, &keys);
    GenerationRecord back;
    greedy.kdf.n = quint64(1) << 28;
    EXPECT_FALSE(GenerationRecord::decode(greedy.encode(), &back));
    KeySet none;
    const GenerationRecord plain = GenerationRecord::create("g", "b", "", "", "", false, &none);
    EXPECT_FALSE(plain.encrypted());
    EXPECT_FALSE(none.encrypted());
}

} // namespace
