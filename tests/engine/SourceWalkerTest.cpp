#include "service/engine/SourceWalker.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using Orv::Common::SymlinkBackupMode;
using Orv::Engine::SourceWalker;
using Orv::Engine::WalkEntry;
using Orv::Engine::WalkOptions;
using Orv::Engine::WalkVisitor;
using MaskType = WalkOptions::FileMaskType;

namespace {

// Writes each event as "<event> <path below the test folder>", joined by "; ".
class Recorder : public WalkVisitor
{
public:
    explicit Recorder(const QByteArray& base) : m_base(base) {}

    QByteArray transcript;
    int stopAfter = -1;                             // events, then stopRequested()
    std::function<void(const QByteArray&)> onEnter; // path of the folder entered

    void beginRoot(const WalkEntry& e) override { add("begin", e); }
    void endRoot(const WalkEntry& e) override { add("end", e); }
    void enterDirectory(const WalkEntry& e) override
    {
        add("enter", e);
        if (onEnter)
            onEnter(e.path);
    }
    void leaveDirectory(const WalkEntry& e) override { add("leave", e); }
    void entry(const WalkEntry& e) override
    {
        add(S_ISREG(e.st.st_mode) ? "file" : S_ISLNK(e.st.st_mode) ? "link" : "fifo", e);
        if (!e.linkTarget.isEmpty())
            transcript += " -> " + e.linkTarget;
    }
    void problem(const QByteArray& path, const QString& reason) override
    {
        add("problem", path, ": " + reason.toUtf8());
    }
    bool stopRequested() const override { return stopAfter >= 0 && m_events >= stopAfter; }

private:
    void add(const char* event, const WalkEntry& e)
    {
        EXPECT_EQ(e.name, e.path == "/" ? e.path : e.path.mid(e.path.lastIndexOf('/') + 1));
        add(event, e.path);
    }
    void add(const char* event, const QByteArray& path, const QByteArray& tail = {})
    {
        transcript += QByteArray(m_events++ ? "; " : "") + event + " ";
        for (unsigned char c : path.startsWith(m_base) ? path.mid(m_base.size()) : path) {
            if (c == '\n')
                transcript += "\\n";
            else if (c < 0x20 || c >= 0x7f)
                transcript += "\\x" + QByteArray::number(c, 16);
            else
                transcript += char(c);
        }
        transcript += tail;
    }

    QByteArray m_base;
    int m_events = 0;
};

class SourceWalkerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        base = QDir(m_dir.path()).canonicalPath().toUtf8();
        for (const char* folder : {"/src", "/src/.h", "/src/a", "/src/cache", "/links", "/outside"})
            ASSERT_EQ(::mkdir(base + folder, 0755), 0);
        for (const char* file : {"/src/.h/x", "/src/a/.f", "/src/a/f.txt", "/src/a\nb", "/src/a b",
                                 "/src/ab", "/src/cache/c.txt", "/src/\xff", "/outside/o.txt"})
            touch(base + file);
        ASSERT_EQ(::mkfifo(base + "/src/fifo", 0644), 0);
        // Sockets cannot be restored, so the walk leaves them out.
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, base + "/src/sock", sizeof address.sun_path);
        m_socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
        ASSERT_EQ(::bind(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        for (auto [target, at] :
             {std::pair("nowhere", "/links/dangling"), std::pair("../outside", "/links/dir"),
              std::pair("../outside/o.txt", "/links/file"), std::pair(".", "/links/loop")})
            ASSERT_EQ(::symlink(target, base + at), 0);
    }
    void TearDown() override
    {
        ::close(m_socket);
        ::unlink(base + "/src/\xff"); // a name QTemporaryDir cannot spell
    }

    void touch(const QByteArray& path)
    {
        const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        ASSERT_GE(fd, 0) << path.constData();
        ::close(fd);
    }

    std::string walk(WalkOptions options, Recorder* recorder = nullptr)
    {
        Recorder own(base);
        recorder = recorder ? recorder : &own;
        SourceWalker(options).walk(recorder);
        return recorder->transcript.toStdString();
    }

    QByteArray base;

private:
    QTemporaryDir m_dir;
    int m_socket = -1;
};

const char kWholeSource[] =
    "begin /src; enter /src; enter /src/.h; file /src/.h/x; leave /src/.h; enter /src/a; "
    "file /src/a/.f; file /src/a/f.txt; leave /src/a; file /src/a\\nb; file /src/a b; "
    "file /src/ab; enter /src/cache; file /src/cache/c.txt; leave /src/cache; fifo /src/fifo; "
    "file /src/\\xff; leave /src; end /src";

TEST_F(SourceWalkerTest, FiltersShapeTheTranscript)
{
    struct Filters
    {
        QByteArray alsoSource; // below the test folder
        QList<QByteArray> excluded;
        QStringList folderMasks;
        MaskType maskType;
        QStringList fileMasks;
        bool skipHidden;
    };
    const std::pair<Filters, const char*> rows[] = {
        // Masks unused; a source inside another is not walked twice.
        {{"/src/a", {}, {}, MaskType::All, {"*"}, false}, kWholeSource},
        {{"", {"/src/a/", "/src/cache/c.txt"}, {}, MaskType::All, {}, false},
         "begin /src; enter /src; enter /src/.h; file /src/.h/x; leave /src/.h; file /src/a\\nb; "
         "file /src/a b; file /src/ab; enter /src/cache; leave /src/cache; fifo /src/fifo; "
         "file /src/\\xff; leave /src; end /src"},
        {{"", {}, {"a*", "c?che"}, MaskType::All, {}, false},
         "begin /src; enter /src; enter /src/.h; file /src/.h/x; leave /src/.h; file /src/a\\nb; "
         "file /src/a b; file /src/ab; fifo /src/fifo; file /src/\\xff; leave /src; end /src"},
        {{"", {}, {}, MaskType::BackupOnly, {"*.txt"}, false},
         "begin /src; enter /src; enter /src/.h; leave /src/.h; enter /src/a; file /src/a/f.txt; "
         "leave /src/a; enter /src/cache; file /src/cache/c.txt; leave /src/cache; leave /src; "
         "end /src"},
        {{"", {}, {}, MaskType::Skip, {"*.txt", "a?b"}, false},
         "begin /src; enter /src; enter /src/.h; file /src/.h/x; leave /src/.h; enter /src/a; "
         "file /src/a/.f; leave /src/a; file /src/ab; enter /src/cache; leave /src/cache; "
         "fifo /src/fifo; file /src/\\xff; leave /src; end /src"},
        // A hidden source is still taken, in place.
        {{"/src/.h", {}, {}, MaskType::All, {}, true},
         "begin /src; enter /src; enter /src/.h; file /src/.h/x; leave /src/.h; enter /src/a; "
         "file /src/a/f.txt; leave /src/a; file /src/a\\nb; file /src/a b; file /src/ab; "
         "enter /src/cache; file /src/cache/c.txt; leave /src/cache; fifo /src/fifo; "
         "file /src/\\xff; leave /src; end /src"},
    };
    for (const auto& [f, expected] : rows) {
        WalkOptions options;
        options.sources << base + "/src";
        if (!f.alsoSource.isEmpty())
            options.sources << base + f.alsoSource;
        for (const QByteArray& path : f.excluded)
            options.excluded << base + path;
        options.skipFolderMasks = f.folderMasks;
        options.fileMaskType = f.maskType;
        options.fileMasks = f.fileMasks;
        options.skipHidden = f.skipHidden;
        EXPECT_EQ(walk(options), expected);
    }
}

TEST_F(SourceWalkerTest, EachLinkModeHasItsTranscript)
{
    const char* links = "link /links/dangling -> nowhere; link /links/dir -> ../outside; "
                        "link /links/file -> ../outside/o.txt; link /links/loop -> .";
    const char* outside = "begin /outside; enter /outside; file /outside/o.txt; leave /outside; "
                          "end /outside";
    const char* dangling = "problem /links/dangling: link target does not exist";
    const struct
    {
        SymlinkBackupMode::Mode mode;
        std::string expected;
    } rows[] = {
        {SymlinkBackupMode::Ignore, "begin /links; enter /links; leave /links; end /links"},
        {SymlinkBackupMode::SymlinkOnly,
         std::string("begin /links; enter /links; ") + links + "; leave /links; end /links"},
        {SymlinkBackupMode::CurrentPlace,
         std::string("begin /links; enter /links; ") + dangling +
             "; enter /links/dir; file /links/dir/o.txt; leave /links/dir; file /links/file; "
             "problem /links/loop: link leads back into a folder being walked; leave /links; "
             "end /links"},
        // The file's target lies in the queued folder, the loop's in the source.
        {SymlinkBackupMode::OriginalPlaces, std::string("begin /links; enter /links; ") + dangling +
                                                "; leave /links; end /links; " + outside},
        {SymlinkBackupMode::OriginalPlaceAndSymlink,
         std::string("begin /links; enter /links; link /links/dangling -> nowhere; ") + dangling +
             "; link /links/dir -> ../outside; link /links/file -> ../outside/o.txt; "
             "link /links/loop -> .; leave /links; end /links; " +
             outside},
    };
    for (const auto& row : rows) {
        WalkOptions options;
        options.sources << base + "/links";
        options.symlinkMode = row.mode;
        EXPECT_EQ(walk(options), row.expected) << SymlinkBackupMode::name(row.mode).toStdString();
    }
}

TEST_F(SourceWalkerTest, WhatCannotBeReadIsAProblemAndTheWalkGoesOn)
{
    for (const char* folder : {"/v", "/v/a", "/v/b"})
        ASSERT_EQ(::mkdir(base + folder, 0755), 0);
    touch(base + "/v/b/x");
    touch(base + "/v/c");
    Recorder recorder(base);
    // Listed, then gone before their turn.
    recorder.onEnter = [this](const QByteArray& path) {
        if (path == base + "/v/a") {
            QDir(QString::fromLocal8Bit(base + "/v/b")).removeRecursively();
            ::unlink(base + "/v/c");
        }
    };
    WalkOptions options;
    options.sources << "/proc/" << base + "/missing" << base + "/v";
    EXPECT_EQ(walk(options, &recorder),
              "begin /proc; enter /proc; leave /proc; end /proc; "
              "problem /missing: does not exist; "
              "begin /v; enter /v; enter /v/a; leave /v/a; "
              "problem /v/b: vanished before it was read; "
              "problem /v/c: vanished before it was read; leave /v; end /v");
}

TEST_F(SourceWalkerTest, FilesOpenForWritingAreSkippedOnRequest)
{
    ASSERT_EQ(::mkdir(base + "/busy", 0755), 0);
    touch(base + "/busy/read");
    QProcess holder;
    holder.setWorkingDirectory(QString::fromLocal8Bit(base + "/busy"));
    holder.start("sh", {"-c", "exec 3>>written 4<read; echo ready; exec sleep 30"});
    ASSERT_TRUE(holder.waitForReadyRead(10000));

    WalkOptions options;
    options.sources << base + "/busy";
    EXPECT_EQ(walk(options),
              "begin /busy; enter /busy; file /busy/read; file /busy/written; leave /busy; "
              "end /busy");
    options.skipInUse = true;
    EXPECT_EQ(walk(options), "begin /busy; enter /busy; file /busy/read; "
                             "problem /busy/written: in use by another process; leave /busy; "
                             "end /busy");
    holder.kill();
    holder.waitForFinished();
}

TEST_F(SourceWalkerTest, StopRequestEndsTheWalkAtOnce)
{
    Recorder recorder(base);
    recorder.stopAfter = 4;
    WalkOptions options;
    options.sources << base + "/src" << base + "/links";
    EXPECT_EQ(walk(options, &recorder), "begin /src; enter /src; enter /src/.h; file /src/.h/x");
}

} // namespace
