// The engine's primitives: chunk boundaries, ids, compression, encryption,
// key derivation and the bandwidth limit.

#include "kelStreams/BandwidthLimiter.h"
#include "kelStreams/Chunker.h"
#include "kelStreams/Cipher.h"
#include "kelStreams/Compressor.h"
#include "kelStreams/Hash.h"

#include <QElapsedTimer>
#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <thread>
#include <tuple>
#include <vector>

using namespace Kel::Streams;

namespace {

QByteArray randomData(int size)
{
    std::mt19937_64 generator(1);
    QByteArray out(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        out[i] = char(generator());
    return out;
}

QByteArray textData(int size)
{
    const char* words[] = {"backup ", "restore ", "chunk ", "file\n", "the ", "of ", "orv "};
    std::mt19937 generator(7);
    QByteArray out;
    while (out.size() < size)
        out += words[generator() % 7];
    return out.left(size);
}

std::vector<std::size_t> boundaries(const Chunker& chunker, const QByteArray& data)
{
    std::vector<std::size_t> cuts;
    const auto* p = reinterpret_cast<const uchar*>(data.constData());
    for (std::size_t at = 0, size = std::size_t(data.size()); at < size;) {
        at += chunker.cut(p + at, size - at);
        cuts.push_back(at);
    }
    return cuts;
}

} // namespace

TEST(Streams, ChunkerCutsByContent)
{
    const QByteArray data = randomData(20 << 20);
    const std::vector<std::size_t> cuts = boundaries(Chunker(42), data);
    ASSERT_GT(cuts.size(), 8u);
    for (std::size_t i = 0, last = 0; i + 1 < cuts.size(); last = cuts[i++]) {
        EXPECT_GE(cuts[i] - last, Chunker::kMinSize);
        EXPECT_LE(cuts[i] - last, Chunker::kMaxSize);
    }
    EXPECT_EQ(cuts, boundaries(Chunker(42), data));
    EXPECT_NE(cuts, boundaries(Chunker(43), data));

    // A few bytes inserted near the start move the later boundaries along.
    const QByteArray shifted = data.left(1000) + "inserted" + data.mid(1000);
    std::set<std::size_t> after;
    for (std::size_t cut : boundaries(Chunker(42), shifted))
        after.insert(cut - 8);
    const auto kept =
        std::count_if(cuts.begin(), cuts.end(), [&](std::size_t cut) { return after.count(cut); });
    EXPECT_GE(std::size_t(kept), cuts.size() - 1);

    // Short input is one chunk; data without cut points is cut at kMaxSize.
    const QByteArray zeros(int(Chunker::kMaxSize + 1000), '\0');
    const auto* z = reinterpret_cast<const uchar*>(zeros.constData());
    EXPECT_EQ(Chunker(42).cut(z, 100), 100u);
    EXPECT_EQ(Chunker(42).cut(z, std::size_t(zeros.size())), Chunker::kMaxSize);
}

TEST(Streams, IdsAreKnownAndStable)
{
    const QByteArray abc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
    const QByteArray empty = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
    const QByteArray jefe = "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843";

    // Repeated calls check that a reused context starts afresh each time.
    IdHasher plain, keyed("Jefe");
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(plain.id("abc").toHex(), abc);
        EXPECT_EQ(plain.id(QByteArray()).toHex(), empty);
        EXPECT_EQ(keyed.id("what do ya want for nothing?").toHex(), jefe);
        EXPECT_EQ(keyed.id(QByteArray()), IdHasher("Jefe").id(QByteArray()));
    }
    EXPECT_EQ(sha256("abc").toHex(), abc);
    EXPECT_NE(keyed.id("abc"), IdHasher("Jeff").id("abc"));
    EXPECT_NE(randomBytes(16), randomBytes(16));
}

TEST(Streams, CompressesOnlyWhatShrinks)
{
    const QByteArray random = randomData(1 << 20);
    const std::pair<QByteArray, bool> cases[] = {
        {textData(1 << 20), true},
        {textData(300), true},
        {random, false},
        {QByteArray(), false},
        // The sample sees mostly zeros; the whole still shrinks by half.
        {random.left(512 << 10) + QByteArray(512 << 10, '\0'), true},
    };
    Compressor compressor;
    for (const auto& [data, shrinks] : cases) {
        SCOPED_TRACE(data.size());
        QByteArray packed = "stale", restored;
        const std::size_t size = std::size_t(data.size());
        ASSERT_EQ(compressor.compress(data.constData(), size, &packed), shrinks);
        EXPECT_EQ(packed.isEmpty(), !shrinks);
        if (!shrinks)
            continue;
        EXPECT_LE(packed.size() * 32, data.size() * 31);
        const std::size_t packedSize = std::size_t(packed.size());
        ASSERT_TRUE(decompress(packed.constData(), packedSize, size, &restored));
        EXPECT_EQ(restored, data);
        for (std::size_t wrong : {size - 1, size + 1})
            EXPECT_FALSE(decompress(packed.constData(), packedSize, wrong, &restored));
        EXPECT_TRUE(restored.isEmpty());
        ASSERT_TRUE(decompress(packed.constData(), packedSize, size, &packed)); // in place
        EXPECT_EQ(packed, data);
    }

    // A damaged byte is refused or, where the format ignores it (unused
    // header bits, padding), still gives the original; never other data.
    const QByteArray text = textData(3000);
    QByteArray frame, restored;
    ASSERT_TRUE(compressor.compress(text.constData(), 3000, &frame));
    for (int i = 0; i < frame.size(); ++i) {
        QByteArray damaged = frame;
        damaged[i] = char(damaged[i] ^ 0x10);
        if (decompress(damaged.constData(), std::size_t(frame.size()), 3000, &restored)) {
            EXPECT_EQ(restored, text) << "byte " << i;
        }
        EXPECT_FALSE(decompress(frame.constData(), std::size_t(i), 3000, &restored)) << i;
    }
}

TEST(Streams, CipherRefusesAnyChange)
{
    for (int keySize : {16, 24, 32}) {
        const QByteArray key = randomBytes(keySize), plain = textData(100000);
        Cipher sealer(key), opener(key);
        QByteArray sealed = "prefix", again, opened;
        ASSERT_TRUE(sealer.seal(plain.constData(), std::size_t(plain.size()), &sealed, "ad"));
        ASSERT_TRUE(sealer.seal(plain.constData(), std::size_t(plain.size()), &again, "ad"));
        ASSERT_TRUE(sealed.startsWith("prefix"));
        sealed.remove(0, 6);
        EXPECT_EQ(sealed.size(), plain.size() + Cipher::kOverhead);
        EXPECT_NE(sealed.left(Cipher::kNonceSize), again.left(Cipher::kNonceSize));
        for (Cipher* cipher : {&opener, &sealer}) {
            ASSERT_TRUE(
                cipher->open(sealed.constData(), std::size_t(sealed.size()), &opened, "ad"));
            EXPECT_EQ(opened, plain);
        }
        // In place, the input being the output.
        ASSERT_TRUE(opener.open(sealed.constData(), std::size_t(sealed.size()), &sealed, "ad"));
        EXPECT_EQ(sealed, plain);
    }

    Cipher cipher(randomBytes(32)), other(randomBytes(32));
    QByteArray sealed;
    ASSERT_TRUE(cipher.seal("attack at dawn", 14, &sealed, "ad"));
    const auto flipped = [&](int at) {
        QByteArray copy = sealed;
        copy[at] = char(copy[at] ^ 1);
        return copy;
    };
    const std::tuple<Cipher*, QByteArray, QByteArray> cases[] = {
        {&cipher, flipped(0), "ad"},                         // nonce
        {&cipher, flipped(Cipher::kNonceSize + 5), "ad"},    // cipher text
        {&cipher, flipped(sealed.size() - 1), "ad"},         // tag
        {&other, sealed, "ad"},                              // key
        {&cipher, sealed, "ae"},                             // associated data
        {&cipher, sealed, QByteArray()},                     // associated data missing
        {&cipher, sealed.left(sealed.size() - 1), "ad"},     // truncated
        {&cipher, sealed.left(Cipher::kOverhead - 1), "ad"}, // shorter than overhead
    };
    for (const auto& c : cases) {
        const auto& [opener, message, associated] = c;
        QByteArray opened = "stale";
        EXPECT_FALSE(
            opener->open(message.constData(), std::size_t(message.size()), &opened, associated))
            << "case " << &c - cases;
        EXPECT_TRUE(opened.isEmpty());
    }

    Cipher invalid(randomBytes(20));
    EXPECT_FALSE(invalid.isValid());
    EXPECT_FALSE(invalid.seal("x", 1, &sealed));
}

TEST(Streams, ScryptDerivesKnownKeys)
{
    EXPECT_EQ(deriveKey("", "", {16, 1, 1}, 64).toHex(),
              "77d6576238657b203b19ca42c18a0497f16b4844e3074ae8dfdffa3fede21442fcd0069ded0948f8"
              "326a753a0fc81f17e8d3e0fb2e0d3628cf35e20c38d18906");
    for (const ScryptParameters& bad :
         {ScryptParameters{0, 1, 1}, ScryptParameters{1, 1, 1}, ScryptParameters{24, 1, 1},
          ScryptParameters{16, 0, 1}, ScryptParameters{16, 1, 0}})
        EXPECT_TRUE(deriveKey("pw", "salt", bad, 32).isEmpty()) << bad.n << bad.r << bad.p;
    EXPECT_TRUE(deriveKey("pw", "salt", {16, 1, 1}, 0).isEmpty());
}

TEST(Streams, BandwidthLimiterHoldsTheRate)
{
    // The bucket starts empty: 1 MiB at 2 MiB/s takes half a second, however
    // the threads interleave.
    BandwidthLimiter limiter(2 << 20);
    QElapsedTimer timer;
    timer.start();
    const auto send = [&] {
        limiter.acquire(256 << 10);
        limiter.acquire(256 << 10);
    };
    std::thread first(send), second(send);
    first.join();
    second.join();
    EXPECT_GE(timer.elapsed(), 450);

    // More than the bucket holds still passes, after its share of time.
    timer.restart();
    limiter.acquire(3 << 20);
    EXPECT_GE(timer.elapsed(), 1400);

    limiter.setRate(0);
    limiter.acquire(qint64(1) << 40);
}
