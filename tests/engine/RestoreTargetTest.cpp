#include "service/engine/RestoreTarget.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

using Kel::Archive::Node;
using Orv::Engine::RestoreTarget;
using Existing = RestoreTarget::Existing;

namespace {

Node node(Node::Type type, quint32 mode, qint64 mtimeNs, quint64 size = 0)
{
    Node n;
    n.type = type;
    n.mode = mode;
    n.uid = 1234;
    n.gid = 5678;
    n.mtimeNs = mtimeNs;
    n.size = size;
    return n;
}

class RestoreTargetTest : public ::testing::Test
{
protected:
    QTemporaryDir dir;
    const QByteArray root = QFile::encodeName(dir.path());

    static struct stat lookAt(const QByteArray& path)
    {
        struct stat st = {};
        EXPECT_EQ(::lstat(path.constData(), &st), 0) << path.constData();
        return st;
    }
    static qint64 mtimeOf(const QByteArray& path)
    {
        const struct stat st = lookAt(path);
        return st.st_mtim.tv_sec * 1000000000LL + st.st_mtim.tv_nsec;
    }
    static QByteArray slurp(const QByteArray& path)
    {
        QFile file(QFile::decodeName(path));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    static void spill(const QByteArray& path, const QByteArray& content)
    {
        QFile file(QFile::decodeName(path));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
    }
    // Temporary files a restore left behind in a folder.
    static QStringList temporaries(const QByteArray& folder)
    {
        return QDir(QFile::decodeName(folder))
            .entryList({QStringLiteral(".orv-restore-*")},
                       QDir::AllEntries | QDir::Hidden | QDir::System);
    }
};

} // namespace

TEST_F(RestoreTargetTest, PlacesOnlyPathsThatStayInsideTheDestination)
{
    const struct
    {
        QByteArray original, destination, expected;
    } cases[] = {
        {"/home/a b\nc\xff\xfe", "/restore", "/restore/home/a b\nc\xff\xfe"},
        {"/etc/", "/restore//", "/restore/etc"},
        {"/", "/restore", "/restore"},
        {"/x/y", "", "/x/y"},
        {"relative", "/restore", ""},
        {"/a/../b", "/restore", ""},
        {"/a/./b", "/restore", ""},
        {"/a//b", "/restore", ""},
        {"/a//", "/restore", ""},
        {"/..", "", ""},
        {QByteArray("/a\0/b", 5), "/restore", ""},
        {"/a", "restore", ""},
    };
    for (const auto& c : cases) {
        QString error;
        RestoreTarget target({c.destination, Existing::Overwrite, true});
        EXPECT_EQ(target.place(c.original, &error), c.expected)
            << c.original.toPercentEncoding().constData();
        EXPECT_EQ(error.isEmpty(), !c.expected.isEmpty()) << error.toStdString();
    }
    QString error;
    RestoreTarget({"/r", Existing::Overwrite, true}).place("/\xff/..", &error);
    EXPECT_TRUE(error.contains(QLatin1String("/\\xff/.."))) << error.toStdString();
}

TEST_F(RestoreTargetTest, WantedFollowsTheExistingRule)
{
    const QByteArray present = root + "/present";
    spill(present, "old");
    const struct timespec times[2] = {{1600000000, 123456789}, {1600000000, 123456789}};
    ASSERT_EQ(::utimensat(AT_FDCWD, present.constData(), times, 0), 0);

    // Missing, and existing one nanosecond older and newer than the backup.
    const std::pair<QByteArray, qint64> columns[] = {{present + "-not", 1600000000123456789},
                                                     {present, 1600000000123456790},
                                                     {present, 1600000000123456788}};
    const struct
    {
        Existing rule;
        bool wanted[3];
    } cases[] = {
        {Existing::Overwrite, {true, true, true}},
        {Existing::SkipExisting, {true, false, false}},
        {Existing::OnlyNewer, {true, true, false}},
    };
    for (const auto& c : cases) {
        RestoreTarget target({{}, c.rule, true});
        for (int i = 0; i < 3; ++i) {
            const Node asked = node(Node::Type::File, 0644, columns[i].second);
            EXPECT_EQ(target.wanted(columns[i].first, asked), c.wanted[i]) << int(c.rule) << i;
        }
    }
}

TEST_F(RestoreTargetTest, SparseFileArrivingOutOfOrderComesBackWhole)
{
    QByteArray content;
    for (int i = 0; i < 100001; ++i)
        content += char(i * 7 % 251 + 1);
    content += QByteArray(1 << 20, '\0') + QByteArray(50000, 'x') + QByteArray(200000, '\0');
    const Node file = node(Node::Type::File, 04755, 1500000000123456789, quint64(content.size()));

    RestoreTarget target({root + "/dest", Existing::Overwrite, true});
    const QByteArray place = target.place("/deep/er/sparse", nullptr);
    QString error;
    auto writer = target.openFile(place, file, &error);
    ASSERT_TRUE(writer) << error.toStdString();
    // Pieces that do not line up with blocks, zero runs inside them, in any order.
    const int piece = 400123;
    for (int offset : {2 * piece, piece, 0, 3 * piece}) {
        const int length = std::min(piece, content.size() - offset);
        ASSERT_TRUE(
            writer->write(quint64(offset), content.constData() + offset, size_t(length), &error))
            << error.toStdString();
    }
    ASSERT_TRUE(writer->commit(&error)) << error.toStdString();

    EXPECT_EQ(slurp(place), content);
    const struct stat st = lookAt(place);
    EXPECT_LT(st.st_blocks * 512, content.size() - (1 << 20));
    EXPECT_EQ(st.st_mode & 07777, 04755u); // set after the owner, which would clear setuid
    EXPECT_EQ(mtimeOf(place), file.mtimeNs);
    EXPECT_EQ(st.st_uid, ::geteuid() == 0 ? 1234u : ::geteuid());
    EXPECT_TRUE(temporaries(root + "/dest/deep/er").isEmpty());
}

TEST_F(RestoreTargetTest, AFileThatIsNotCompletedLeavesTheOldOneAlone)
{
    const QByteArray disk = root + "/disk", place = disk + "/file", old(100000, 'o');
    ASSERT_EQ(::mkdir(disk.constData(), 0700), 0);
    if (::mount("tmpfs", disk.constData(), "tmpfs", 0, "size=1m") != 0)
        GTEST_SKIP() << "a small file system needs root";
    struct Unmount
    {
        const QByteArray& path;
        ~Unmount() { EXPECT_EQ(::umount(path.constData()), 0); }
    } unmount{disk};
    spill(place, old);

    // A full disk fails the write or the commit; a writer dropped uncommitted
    // is abandoned. Either way the old file stays and nothing is left over.
    const struct
    {
        int size;
        bool commit;
        const char* reason;
    } cases[] = {{2 << 20, true, std::strerror(ENOSPC)}, {5000, false, ""}};
    RestoreTarget target({{}, Existing::Overwrite, true});
    for (const auto& c : cases) {
        const QByteArray content(c.size, 'n');
        QString error;
        {
            auto writer =
                target.openFile(place, node(Node::Type::File, 0644, 0, quint64(c.size)), &error);
            ASSERT_TRUE(writer) << error.toStdString();
            const bool written = writer->write(0, content.constData(), size_t(c.size), &error);
            if (c.commit) {
                EXPECT_FALSE(writer->commit(written ? &error : nullptr));
            }
        }
        EXPECT_TRUE(error.contains(QString::fromLocal8Bit(c.reason))) << error.toStdString();
        EXPECT_EQ(slurp(place), old) << c.size;
        EXPECT_TRUE(temporaries(disk).isEmpty()) << c.size;
    }
}

TEST_F(RestoreTargetTest, LinksSpecialFilesAndFolders)
{
    const QByteArray outside = root + "/outside";
    ASSERT_EQ(::mkdir(outside.constData(), 0700), 0);
    RestoreTarget target({root + "/dest", Existing::Overwrite, true});
    const QByteArray folder = target.place("/a/b", nullptr);
    QString error;
    ASSERT_TRUE(target.makeDirectory(folder, &error)) << error.toStdString();
    EXPECT_EQ(lookAt(folder).st_mode & 07777, 0700u);

    // The content, each entry made over something already there.
    const QByteArray file = folder + "/file", link = folder + "/link\n", fifo = folder + "/fifo",
                     hard = folder + "/hard";
    for (const QByteArray& place : {link, fifo, hard})
        spill(place, "in the way");
    auto writer = target.openFile(file, node(Node::Type::File, 0600, 0, 4), &error);
    ASSERT_TRUE(writer && writer->write(0, "data", 4, &error) && writer->commit(&error));
    Node symlink = node(Node::Type::Symlink, 0777, 1400000000000000001);
    symlink.linkTarget = "../odd target\xff";
    ASSERT_TRUE(target.makeSymlink(link, symlink, &error)) << error.toStdString();
    const Node pipe = node(Node::Type::Fifo, 0620, 1400000000000000002);
    ASSERT_TRUE(target.makeSpecial(fifo, pipe, &error)) << error.toStdString();
    for (int twice = 0; twice < 2; ++twice)
        ASSERT_TRUE(target.makeHardLink(hard, file, &error)) << error.toStdString();

    char buffer[64] = {};
    EXPECT_EQ(QByteArray(buffer, int(::readlink(link.constData(), buffer, sizeof buffer))),
              symlink.linkTarget);
    EXPECT_EQ(mtimeOf(link), symlink.mtimeNs);
    EXPECT_EQ(lookAt(link).st_gid, ::geteuid() == 0 ? 5678u : ::getegid());
    EXPECT_EQ(lookAt(fifo).st_mode, S_IFIFO | 0620u);
    EXPECT_EQ(mtimeOf(fifo), pipe.mtimeNs);
    EXPECT_EQ(lookAt(hard).st_ino, lookAt(file).st_ino);

    const Node folderNode = node(Node::Type::Directory, 0751, 1300000000000000003);
    ASSERT_TRUE(target.finishDirectory(folder, folderNode, &error)) << error.toStdString();
    EXPECT_EQ(lookAt(folder).st_mode & 07777, 0751u);
    EXPECT_EQ(mtimeOf(folder), folderNode.mtimeNs);
    EXPECT_TRUE(temporaries(folder).isEmpty());

    // A folder over a file: replaced under Overwrite, refused otherwise.
    EXPECT_FALSE(
        RestoreTarget({root + "/dest", Existing::SkipExisting, true}).makeDirectory(fifo, &error));
    EXPECT_TRUE(target.makeDirectory(fifo, &error)) << error.toStdString();
    EXPECT_TRUE(S_ISDIR(lookAt(fifo).st_mode));

    // A link the backup made is never a way out of the destination.
    Node escape = node(Node::Type::Symlink, 0777, 0);
    escape.linkTarget = outside;
    ASSERT_TRUE(target.makeSymlink(folder + "/escape", escape, &error));
    for (const char* path : {"/a/b/escape/file", "/a/b/escape/x/y"}) {
        EXPECT_FALSE(target.openFile(target.place(path, nullptr), symlink, &error));
        EXPECT_TRUE(error.contains(QLatin1String("symbolic link"))) << error.toStdString();
    }
    EXPECT_FALSE(target.makeDirectory(folder + "/escape/sub", &error));
    EXPECT_EQ(::rmdir(outside.constData()), 0) << "something was made outside";
}
