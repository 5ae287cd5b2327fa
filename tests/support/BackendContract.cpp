#include "support/BackendContract.h"

#include "support/QtPrinters.h"

#include <QBuffer>
#include <algorithm>
#include <gtest/gtest.h>

namespace OrvTest {

using Kel::Cloud::Backend;
using Kel::Cloud::ObjectInfo;
using Kel::Cloud::Operation;

namespace {

QByteArray pattern(int size, char seed)
{
    QByteArray data(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        data[i] = static_cast<char>(seed + i * 7 % 251);
    return data;
}

QStringList namesWithSizes(Backend& backend, const QString& prefix)
{
    QList<ObjectInfo> objects;
    const auto status = backend.list(prefix, &objects);
    EXPECT_TRUE(status.ok()) << status.message.toStdString();
    QStringList names;
    for (const ObjectInfo& object : objects)
        names << QStringLiteral("%1=%2").arg(object.name).arg(object.size);
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

void exerciseObjects(Backend& backend)
{
    const QByteArray one = pattern(1000, 'a');
    ASSERT_TRUE(backend.write(QStringLiteral("a/b/one.bin"), one).ok());
    ASSERT_TRUE(backend.write(QStringLiteral("a/two words"), QByteArray("second")).ok());
    ASSERT_TRUE(backend.write(QStringLiteral("c/empty"), QByteArray()).ok());
    ASSERT_TRUE(backend.write(QStringLiteral("top"), QByteArray("t")).ok());

    ObjectInfo info;
    ASSERT_TRUE(backend.stat(QStringLiteral("a/b/one.bin"), &info).ok());
    EXPECT_EQ(info.size, 1000);
    EXPECT_LT(qAbs(info.modified.secsTo(QDateTime::currentDateTimeUtc())), 120);
    EXPECT_EQ(backend.stat(QStringLiteral("a/none"), &info).error,
              Operation::Error::ObjectNotFound);

    QByteArray data;
    ASSERT_TRUE(backend.read(QStringLiteral("a/b/one.bin"), 0, -1, &data).ok());
    EXPECT_EQ(data, one);
    ASSERT_TRUE(backend.read(QStringLiteral("a/b/one.bin"), 10, 20, &data).ok());
    EXPECT_EQ(data, one.mid(10, 20));
    ASSERT_TRUE(backend.read(QStringLiteral("a/b/one.bin"), 990, 100, &data).ok());
    EXPECT_EQ(data, one.mid(990));
    ASSERT_TRUE(backend.read(QStringLiteral("a/b/one.bin"), 5000, 10, &data).ok());
    EXPECT_TRUE(data.isEmpty());
    EXPECT_EQ(backend.read(QStringLiteral("a/none"), 0, -1, &data).error,
              Operation::Error::ObjectNotFound);

    EXPECT_EQ(namesWithSizes(backend, {}),
              QStringList({"a/b/one.bin=1000", "a/two words=6", "c/empty=0", "top=1"}));
    EXPECT_EQ(namesWithSizes(backend, QStringLiteral("a/")),
              QStringList({"a/b/one.bin=1000", "a/two words=6"}));
    EXPECT_EQ(namesWithSizes(backend, QStringLiteral("a/t")), QStringList({"a/two words=6"}));
    EXPECT_EQ(namesWithSizes(backend, QStringLiteral("a/b")), QStringList({"a/b/one.bin=1000"}));
    EXPECT_TRUE(namesWithSizes(backend, QStringLiteral("zzz/")).isEmpty());

    // A streamed write of unknown length replaces the object whole.
    QBuffer source;
    source.setData(pattern(70000, 'z'));
    source.open(QIODevice::ReadOnly);
    ASSERT_TRUE(backend.write(QStringLiteral("a/two words"), &source, -1).ok());
    ASSERT_TRUE(backend.read(QStringLiteral("a/two words"), 0, -1, &data).ok());
    EXPECT_EQ(data, pattern(70000, 'z'));

    // A source that ends before its announced size leaves nothing behind.
    QBuffer shortSource;
    shortSource.setData("only this");
    shortSource.open(QIODevice::ReadOnly);
    EXPECT_FALSE(backend.write(QStringLiteral("c/short"), &shortSource, 100).ok());
    EXPECT_EQ(backend.stat(QStringLiteral("c/short"), &info).error,
              Operation::Error::ObjectNotFound);

    for (const char* outside : {"../escape", "/absolute", "a/../../x", "a//b", ""})
        EXPECT_EQ(backend.write(QString::fromLatin1(outside), QByteArray("x")).error,
                  Operation::Error::InvalidConfiguration)
            << outside;

    ASSERT_TRUE(backend.remove(QStringLiteral("a/two words")).ok());
    EXPECT_TRUE(backend.remove(QStringLiteral("a/two words")).ok());
    EXPECT_EQ(backend.stat(QStringLiteral("a/two words"), &info).error,
              Operation::Error::ObjectNotFound);
    // Only what was written shows: no probes, no partial writes.
    EXPECT_EQ(namesWithSizes(backend, {}), QStringList({"a/b/one.bin=1000", "c/empty=0", "top=1"}));
}

} // namespace OrvTest
