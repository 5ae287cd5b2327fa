// The engine end to end: backups into a real storage, restores out of it,
// compared byte for byte and field for field with the source.
#include "StoragePeers.h"
#include "kelCloud/Config.h"
#include "kelStreams/Hash.h"
#include "orvRepository/Generation.h"
#include "orvRepository/PointBrowser.h"
#include "service/engine/Archiver.h"
#include "service/engine/RestoreTarget.h"
#include "service/engine/Restorer.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QMap>
#include <QProcess>
#include <QTemporaryDir>
#include <chrono>
#include <dirent.h>
#include <fcntl.h>
#include <future>
#include <gtest/gtest.h>
#include <random>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace Orv::Engine;
using Orv::Repository::Repository;
using Orv::Repository::Status;

using OrvTest::Storage;

namespace {

void writeFile(const QByteArray& path, const QByteArray& data)
{
    QFile f(QString::fromLocal8Bit(path));
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(data);
}

QByteArray randomData(int size, unsigned seed)
{
    std::mt19937 gen(seed);
    QByteArray data(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i) {
        data[i] = char(gen());
    }
    return data;
}

// A tree with the shapes that break backup programs.
void makeTree(const QByteArray& root)
{
    mkdir(root.constData(), 0755);
    writeFile(root + "/empty", QByteArray());
    writeFile(root + "/text with spaces.txt", QByteArray(20000, 'a') + "end");
    writeFile(root + "/new\nline", "newline");
    writeFile(root + "/bad\xff\xfe name", "not utf-8");
    writeFile(root + "/large.bin", randomData(6 * 1024 * 1024, 1));
    const int sparse = ::open((root + "/sparse").constData(), O_CREAT | O_WRONLY, 0640);
    ASSERT_GE(sparse, 0);
    ASSERT_EQ(pwrite(sparse, "middle", 6, 3 * 1024 * 1024), 6);
    ASSERT_EQ(ftruncate(sparse, 5 * 1024 * 1024), 0);
    ::close(sparse);
    QByteArray deep = root + "/deep";
    for (int i = 0; i < 30; ++i) {
        deep += "/level" + QByteArray::number(i);
    }
    QDir().mkpath(QString::fromLocal8Bit(deep));
    writeFile(deep + "/bottom", "bottom");
    mkdir((root + "/empty folder").constData(), 0700);
    ASSERT_EQ(symlink("large.bin", (root + "/link").constData()), 0);
    ASSERT_EQ(symlink("/nowhere/at/all", (root + "/dangling").constData()), 0);
    ASSERT_EQ(link((root + "/new\nline").constData(), (root + "/hard").constData()), 0);
    ASSERT_EQ(mkfifo((root + "/fifo").constData(), 0600), 0);
    chmod((root + "/text with spaces.txt").constData(), 0604);
    lchown((root + "/bad\xff\xfe name").constData(), 1234, 5678);
    struct timespec times[2] = {{1000000, 5}, {1500000000, 123456789}};
    utimensat(AT_FDCWD, (root + "/empty").constData(), times, 0);
}

// Every entry below root as one line: type, mode, owner, times, size, the
// content's digest or the link's target, and which entries share an inode.
QMap<QByteArray, QByteArray> describe(const QByteArray& root)
{
    QMap<QByteArray, QByteArray> out;
    QMap<ino_t, QByteArray> inodes;
    std::vector<QByteArray> pending{""};
    while (!pending.empty()) {
        const QByteArray rel = pending.back();
        pending.pop_back();
        DIR* dir = opendir((root + rel).constData());
        if (!dir) {
            continue;
        }
        while (dirent* e = readdir(dir)) {
            const QByteArray name(e->d_name);
            if (name == "." || name == "..") {
                continue;
            }
            const QByteArray path = rel + '/' + name;
            struct stat st;
            lstat((root + path).constData(), &st);
            QByteArray line = QByteArray::number(st.st_mode, 8) + ' ' +
                              QByteArray::number(st.st_uid) + ':' + QByteArray::number(st.st_gid);
            if (!S_ISLNK(st.st_mode)) {
                line += " t" + QByteArray::number(qint64(st.st_mtim.tv_sec)) + '.' +
                        QByteArray::number(qint64(st.st_mtim.tv_nsec));
            }
            if (S_ISREG(st.st_mode)) {
                QFile f(QString::fromLocal8Bit(root + path));
                f.open(QIODevice::ReadOnly);
                line += ' ' + QByteArray::number(qint64(st.st_size)) + ' ' +
                        Kel::Streams::sha256(f.readAll()).toHex().left(16);
                if (st.st_nlink > 1) {
                    line += " links:" + inodes.value(st.st_ino, path);
                    inodes.insert(st.st_ino, inodes.value(st.st_ino, path));
                }
            } else if (S_ISLNK(st.st_mode)) {
                char target[4096];
                const ssize_t n = readlink((root + path).constData(), target, sizeof target);
                line += " -> " + QByteArray(target, int(std::max<ssize_t>(n, 0)));
            } else if (S_ISDIR(st.st_mode)) {
                pending.push_back(path);
            }
            out.insert(path, line);
        }
        closedir(dir);
    }
    return out;
}

class EngineTest : public ::testing::TestWithParam<Storage>
{
protected:
    static void TearDownTestSuite() { OrvTest::StoragePeers::stop(); }

    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        source = QFile::encodeName(dir.filePath("source"));
        makeTree(source);
        location.cacheFolder = dir.filePath("cache");
        QString error;
        const QVariantMap config =
            OrvTest::StoragePeers::place(GetParam(), dir, &location.prefix, &error);
        ASSERT_FALSE(config.isEmpty()) << error.toStdString();
        location.backend = [config](Kel::Cloud::Status* status) {
            return Kel::Cloud::Backend::create(config, status);
        };
        repository = std::make_unique<Repository>(location);
    }

    RunDescription run(bool encrypted) const
    {
        RunDescription d;
        d.planId = QStringLiteral("6f1c2d7e-0000-4000-8000-000000000001");
        d.planName = QStringLiteral("Documents");
        d.walk.sources = {source};
        d.compression = encrypted;
        if (encrypted) {
            d.algorithm = QStringLiteral("aes-256");
            d.password = "correct horse";
            d.hint = "the horse";
        }
        return d;
    }

    RunResult backup(const RunDescription& d) const
    {
        Archiver archiver(*repository, d);
        return archiver.run();
    }

    RestoreResult restore(const RunDescription& d, const QByteArray& to,
                          const QString& point = QString(), bool includeDeleted = false) const
    {
        RestoreDescription r;
        r.bunch = d.planId;
        r.point = point;
        r.includeDeleted = includeDeleted;
        r.password = d.password;
        r.target.destination = to;
        Restorer restorer(*repository, r);
        return restorer.run();
    }

    QByteArray restored(const QByteArray& to) const { return to + source; }

    QTemporaryDir dir;
    QByteArray source;
    Orv::Repository::Location location;
    std::unique_ptr<Repository> repository;
};

TEST_P(EngineTest, AwkwardTreeComesBackAsItWasThroughIncrements)
{
    for (const bool encrypted : {false, true}) {
        SCOPED_TRACE(encrypted ? "compressed and encrypted" : "plain");
        RunDescription d = run(encrypted);
        d.planId.replace(0, 1, encrypted ? "a" : "b");
        const RunResult first = backup(d);
        ASSERT_EQ(first.outcome, RunResult::Outcome::Success) << first.message.toStdString();
        EXPECT_TRUE(first.full);

        // Nothing changed: nothing read, nothing uploaded but listings (the
        // folders above the source, such as /tmp, change all the time).
        const RunResult second = backup(d);
        ASSERT_EQ(second.outcome, RunResult::Outcome::Success) << second.message.toStdString();
        EXPECT_FALSE(second.full);
        EXPECT_EQ(second.filesRead, 0u);
        EXPECT_LT(second.bytesUploaded, 4096u);

        // One byte of a large file: about one chunk goes up.
        QFile large(QString::fromLocal8Bit(source + "/large.bin"));
        ASSERT_TRUE(large.open(QIODevice::ReadWrite));
        const QByteArray before = large.readAll();
        large.seek(4 * 1024 * 1024);
        large.write(encrypted ? "Y" : "X");
        large.close();
        const RunResult third = backup(d);
        ASSERT_EQ(third.outcome, RunResult::Outcome::Success) << third.message.toStdString();
        EXPECT_GT(third.bytesUploaded, 0u);
        EXPECT_LT(third.bytesUploaded, 9u * 1024 * 1024);

        // A renamed folder uploads no content, only its listings.
        const QString moved = QString::fromLocal8Bit(source + "/moved");
        ASSERT_TRUE(QDir().rename(QString::fromLocal8Bit(source + "/deep"), moved));
        ASSERT_TRUE(
            QFile::rename(QString::fromLocal8Bit(source + "/large.bin"), moved + "/large.bin"));
        const RunResult renamed = backup(d);
        ASSERT_EQ(renamed.outcome, RunResult::Outcome::Success) << renamed.message.toStdString();
        EXPECT_LT(renamed.bytesUploaded, 64u * 1024);
        ASSERT_TRUE(
            QFile::rename(moved + "/large.bin", QString::fromLocal8Bit(source + "/large.bin")));
        ASSERT_TRUE(QDir().rename(moved, QString::fromLocal8Bit(source + "/deep")));
        ASSERT_EQ(backup(d).outcome, RunResult::Outcome::Success);

        const QByteArray to = QFile::encodeName(dir.filePath(encrypted ? "out-e" : "out-p"));
        const RestoreResult r = restore(d, to);
        ASSERT_TRUE(r.ok) << r.message.toStdString() << r.failed.join('\n').toStdString();
        EXPECT_EQ(describe(restored(to)), describe(source));
        struct stat st;
        ASSERT_EQ(stat((restored(to) + "/sparse").constData(), &st), 0);
        EXPECT_LT(st.st_blocks * 512, st.st_size) << "holes are kept";

        // The first restore point still holds the byte as it was.
        QList<Orv::Repository::GenerationInfo> generations;
        ASSERT_TRUE(repository->generations(d.planId, &generations).ok());
        ASSERT_EQ(generations.size(), 1);
        ASSERT_EQ(generations.first().points.size(), 5);
        EXPECT_EQ(generations.first().encrypted, encrypted);
        const QByteArray old = to + "-old";
        ASSERT_TRUE(restore(d, old, generations.first().points.first().id).ok);
        QFile oldLarge(QString::fromLocal8Bit(restored(old) + "/large.bin"));
        ASSERT_TRUE(oldLarge.open(QIODevice::ReadOnly));
        EXPECT_TRUE(oldLarge.readAll() == before);

        // The point after the rename, with what earlier points held and it
        // no longer did: the folder under both names, each file as it was
        // last backed up.
        const QString renamedPoint = generations.first().points.at(3).id;
        const QByteArray kept = to + "-deleted";
        ASSERT_TRUE(restore(d, kept, renamedPoint, true).ok);
        const auto got = describe(restored(kept));
        EXPECT_TRUE(got.contains("/deep/level0") && got.contains("/moved/level0"));
        const auto content = [](const QByteArray& path) {
            QFile file(QString::fromLocal8Bit(path));
            return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("unreadable");
        };
        const QByteArray now = content(source + "/large.bin");
        EXPECT_TRUE(content(restored(kept) + "/large.bin") == now);
        EXPECT_TRUE(content(restored(kept) + "/moved/large.bin") == now);
        const QByteArray only = to + "-point";
        ASSERT_TRUE(restore(d, only, renamedPoint).ok);
        EXPECT_FALSE(describe(restored(only)).contains("/deep/level0"));
    }
}

// Faults need only one storage: the folder, where the test can reach the
// stored objects.
using EngineFaultTest = EngineTest;

QString largestObject(const QString& folder)
{
    QString largest;
    qint64 size = -1;
    QDirIterator it(folder, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        if (it.fileInfo().size() > size) {
            size = it.fileInfo().size();
            largest = it.filePath();
        }
    }
    return largest;
}

TEST_P(EngineFaultTest, WrongPasswordAndDamagedDataAreNamedAndTheRestComesBack)
{
    RunDescription d = run(true);
    ASSERT_EQ(backup(d).outcome, RunResult::Outcome::Success);

    RunDescription wrong = d;
    wrong.password = "wrong horse";
    const RestoreResult refused = restore(wrong, QFile::encodeName(dir.filePath("refused")));
    EXPECT_FALSE(refused.ok);
    EXPECT_TRUE(refused.message.startsWith("Wrong password")) << refused.message.toStdString();
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("refused")));

    // One flipped byte in the largest pack (the large file's data).
    QFile pack(largestObject(dir.filePath("storage")));
    ASSERT_TRUE(pack.open(QIODevice::ReadWrite));
    pack.seek(1000);
    const char byte = pack.read(1).at(0);
    pack.seek(1000);
    pack.write(QByteArray(1, char(byte ^ 0x20)));
    pack.close();

    const QByteArray to = QFile::encodeName(dir.filePath("out"));
    const RestoreResult damaged = restore(d, to);
    EXPECT_FALSE(damaged.ok);
    ASSERT_FALSE(damaged.failed.isEmpty());
    EXPECT_TRUE(damaged.failed.first().contains("damaged")) << damaged.failed.first().toStdString();
    const auto want = describe(source);
    const auto got = describe(restored(to));
    EXPECT_EQ(got.value("/new\nline"), want.value("/new\nline"));
    EXPECT_EQ(got.value("/sparse"), want.value("/sparse"));
    EXPECT_FALSE(got.contains("/large.bin")) << "no half file under the real name";

    std::unique_ptr<Orv::Repository::Generation> generation;
    QList<Orv::Repository::GenerationInfo> generations;
    ASSERT_TRUE(repository->generations(d.planId, &generations).ok());
    ASSERT_TRUE(Orv::Repository::Generation::open(*repository, d.planId, generations.first().id,
                                                  d.password, &generation)
                    .ok());
    QStringList problems;
    ASSERT_TRUE(generation->check(&problems).ok());
    EXPECT_EQ(problems.size(), 1) << problems.join('\n').toStdString();
}

TEST_P(EngineFaultTest, RetentionRemovesWholeGenerationsByAge)
{
    RunDescription d = run(false);
    QDateTime clock = QDateTime::currentDateTimeUtc();
    d.now = [&clock] { return clock; };
    d.retention = {1, RunDescription::Retention::Unit::Week};
    ASSERT_EQ(backup(d).outcome, RunResult::Outcome::Success);
    d.forceFull = true;
    clock = clock.addDays(3);
    ASSERT_EQ(backup(d).outcome, RunResult::Outcome::Success);
    QList<Orv::Repository::GenerationInfo> generations;
    ASSERT_TRUE(repository->generations(d.planId, &generations).ok());
    EXPECT_EQ(generations.size(), 2) << "both are younger than a week";

    clock = clock.addDays(10);
    ASSERT_EQ(backup(d).outcome, RunResult::Outcome::Success);
    ASSERT_TRUE(repository->generations(d.planId, &generations).ok());
    ASSERT_EQ(generations.size(), 1) << "the newest generation always stays";
    QDirIterator left(dir.filePath("storage/host1/nbf/" + d.planId), QDir::Files,
                      QDirIterator::Subdirectories);
    while (left.hasNext()) {
        const QString object = left.next();
        EXPECT_TRUE(object.contains(generations.first().id)) << object.toStdString();
    }
}

// Backups killed at random moments: every restore point that became visible
// restores whole, and a run after the last kill completes and checks clean.
TEST_P(EngineFaultTest, KilledRunsLeaveEveryVisiblePointRestorable)
{
    const RunDescription d = run(true);
    std::mt19937 random(20261123);
    int killed = 0;
    // bench/soak.sh runs many more rounds through this variable.
    const int rounds = qEnvironmentVariableIsSet("ORV_KILL_ROUNDS")
                           ? qEnvironmentVariableIntValue("ORV_KILL_ROUNDS")
                           : 20;
    for (int round = 0; round < rounds; ++round) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            RunDescription mine = d;
            for (int i = 0;; ++i) {
                mine.forceFull = i % 3 == 0;
                backup(mine);
            }
        }
        usleep(useconds_t(std::uniform_int_distribution<int>(20, 400)(random) * 1000));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        killed += WIFSIGNALED(status);

        QList<Orv::Repository::GenerationInfo> generations;
        ASSERT_TRUE(repository->generations(d.planId, &generations).ok());
        if (generations.isEmpty()) {
            continue;
        }
        const QByteArray to = QFile::encodeName(dir.filePath(QStringLiteral("out%1").arg(round)));
        const RestoreResult r = restore(d, to);
        ASSERT_TRUE(r.ok) << "round " << round << ": " << r.message.toStdString()
                          << r.failed.join('\n').toStdString();
        EXPECT_EQ(describe(restored(to)).keys(), describe(source).keys());
        QDir(QString::fromLocal8Bit(to)).removeRecursively();
    }
    EXPECT_EQ(killed, rounds);

    const RunResult last = backup(d);
    ASSERT_EQ(last.outcome, RunResult::Outcome::Success) << last.message.toStdString();
    std::unique_ptr<Orv::Repository::Generation> generation;
    ASSERT_TRUE(Orv::Repository::Generation::open(*repository, d.planId, last.generation,
                                                  d.password, &generation)
                    .ok());
    QStringList problems;
    ASSERT_TRUE(generation->check(&problems).ok());
    EXPECT_TRUE(problems.isEmpty()) << problems.join('\n').toStdString();
    const QByteArray to = QFile::encodeName(dir.filePath("final"));
    ASSERT_TRUE(restore(d, to).ok);
    EXPECT_EQ(describe(restored(to)), describe(source));
}

TEST_P(EngineFaultTest, ContentPagesThroughAFolderOnceAndPathsAreFound)
{
    const QByteArray many = source + "/many";
    mkdir(many.constData(), 0755);
    for (int i = 0; i < 1000; ++i) {
        writeFile(many + "/f" + QByteArray::number(i), QByteArray());
    }
    const RunDescription d = run(true);
    const RunResult result = backup(d);
    ASSERT_EQ(result.outcome, RunResult::Outcome::Success) << result.message.toStdString();
    std::unique_ptr<Orv::Repository::Generation> generation;
    ASSERT_TRUE(Orv::Repository::Generation::open(*repository, d.planId, result.generation,
                                                  d.password, &generation)
                    .ok());
    Orv::Repository::PointBrowser browser(*generation, generation->points().last());

    QList<QByteArray> seen;
    int offset = 0;
    while (offset >= 0) {
        QList<Orv::Repository::ContentEntry> page;
        ASSERT_TRUE(browser.list(many + '/', offset, 7, &page, &offset).ok());
        ASSERT_LE(page.size(), 7);
        for (const auto& entry : page) {
            seen.append(entry.path);
        }
    }
    ASSERT_EQ(seen.size(), 1000);
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
    EXPECT_EQ(std::adjacent_find(seen.begin(), seen.end()), seen.end());
    EXPECT_EQ(seen.first(), many + "/f0");

    QList<bool> found;
    ASSERT_TRUE(browser
                    .exists({"/", source, many + "/f999", many + "/f1000", source + "/new\nline",
                             "relative"},
                            &found)
                    .ok());
    EXPECT_EQ(found, (QList<bool>{true, true, true, false, true, false}));
    QList<Orv::Repository::ContentEntry> page;
    int next = 0;
    EXPECT_FALSE(browser.list(source + "/empty", 0, 10, &page, &next).ok())
        << "a file is no folder";
}

// A run stopped on request and a run whose storage fills up both end with
// their reason, leave no restore point behind, and the next run succeeds.
TEST_P(EngineFaultTest, StoppedAndFullStorageRunsLeaveNothingVisible)
{
    RunDescription d = run(true);
    {
        Archiver archiver(*repository, d);
        std::thread stopper([&archiver] {
            while (archiver.progress().bytesRead < 1024 * 1024) {
                std::this_thread::yield();
            }
            archiver.stop();
        });
        const RunResult stopped = archiver.run();
        stopper.join();
        EXPECT_EQ(stopped.outcome, RunResult::Outcome::Failure);
        EXPECT_EQ(stopped.message, "The backup was stopped.");
    }
    QList<Orv::Repository::GenerationInfo> generations;
    ASSERT_TRUE(repository->generations(d.planId, &generations).ok());
    EXPECT_TRUE(generations.isEmpty());

    const QString small = dir.filePath("small");
    QDir().mkpath(small);
    ASSERT_EQ(QProcess::execute("mount", {"-t", "tmpfs", "-o", "size=2m", "tmpfs", small}), 0);
    Orv::Repository::Location full = location;
    const QVariantMap config{{Kel::Cloud::Config::Type, "FileSystem"},
                             {Kel::Cloud::Config::Path, small}};
    full.backend = [config](Kel::Cloud::Status* status) {
        return Kel::Cloud::Backend::create(config, status);
    };
    const Repository fullRepository(full);
    const RunResult failed = Archiver(fullRepository, d).run();
    EXPECT_EQ(failed.outcome, RunResult::Outcome::Failure);
    EXPECT_TRUE(failed.message.contains(QString::fromLocal8Bit(strerror(ENOSPC))))
        << failed.message.toStdString();
    ASSERT_TRUE(fullRepository.generations(d.planId, &generations).ok());
    EXPECT_TRUE(generations.isEmpty());
    QProcess::execute("umount", {small});

    const RunResult next = backup(d);
    ASSERT_EQ(next.outcome, RunResult::Outcome::Success) << next.message.toStdString();
    const QByteArray to = QFile::encodeName(dir.filePath("out"));
    ASSERT_TRUE(restore(d, to).ok);
    EXPECT_EQ(describe(restored(to)), describe(source));
}

// From the storage alone and the password, a machine that lost its cache
// sees what needs a deep sync, syncs, restores and carries on backing up; a
// wrong password changes nothing.
TEST_P(EngineFaultTest, AFreshMachineSyncsRestoresAndCarriesOn)
{
    const RunDescription d = run(true);
    ASSERT_EQ(backup(d).outcome, RunResult::Outcome::Success);
    ASSERT_TRUE(QDir(location.cacheFolder).removeRecursively());

    QList<Orv::Repository::GenerationInfo> generations;
    ASSERT_TRUE(repository->generations(d.planId, &generations).ok());
    ASSERT_EQ(generations.size(), 1);
    EXPECT_TRUE(generations.first().needsDeepSync);
    EXPECT_EQ(QByteArray::fromBase64(generations.first().hint), d.hint);
    const QString generation = generations.first().id;

    const auto refused = repository->deepSync(d.planId, generation, "wrong horse");
    EXPECT_EQ(refused.message, "Wrong password for generation " + generation + ".");
    ASSERT_TRUE(repository->generations(d.planId, &generations).ok());
    EXPECT_TRUE(generations.first().needsDeepSync);

    ASSERT_TRUE(repository->deepSync(d.planId, generation, d.password).ok());
    ASSERT_TRUE(repository->generations(d.planId, &generations).ok());
    EXPECT_FALSE(generations.first().needsDeepSync);

    ASSERT_TRUE(QDir(location.cacheFolder).removeRecursively());
    const QByteArray to = QFile::encodeName(dir.filePath("out"));
    ASSERT_TRUE(restore(d, to).ok);
    EXPECT_EQ(describe(restored(to)), describe(source));
    const RunResult next = backup(d);
    ASSERT_EQ(next.outcome, RunResult::Outcome::Success) << next.message.toStdString();
    EXPECT_FALSE(next.full);
    EXPECT_EQ(next.filesRead, 0u);
}

// A source below a folder the filters leave out is still backed up, in its
// place, and nothing else of that folder is.
TEST_P(EngineFaultTest, ASourceInsideAFilteredFolderIsKept)
{
    QDir().mkpath(QString::fromLocal8Bit(source + "/.cache/keep"));
    writeFile(source + "/.cache/keep/wanted", "wanted");
    writeFile(source + "/.cache/unwanted", "unwanted");
    RunDescription d = run(false);
    d.walk.skipHidden = true;
    d.walk.sources = {source, source + "/.cache/keep"};
    const RunResult result = backup(d);
    ASSERT_EQ(result.outcome, RunResult::Outcome::Success) << result.message.toStdString();
    const QByteArray to = QFile::encodeName(dir.filePath("out"));
    ASSERT_TRUE(restore(d, to).ok);
    const auto got = describe(restored(to));
    const auto want = describe(source);
    EXPECT_EQ(got.value("/.cache/keep/wanted"), want.value("/.cache/keep/wanted"));
    EXPECT_FALSE(got.contains("/.cache/unwanted"));
    EXPECT_EQ(got.value("/large.bin"), want.value("/large.bin"));
    EXPECT_EQ(backup(d).filesRead, 0u) << "the grafted source is compared like any other";
}

// A storage that asks the test before each pack is written: the answer
// breaks the connection, or lets the write go on (after the test let it).
using PackHook = std::function<Kel::Cloud::Status()>;
class HookedBackend : public Kel::Cloud::Backend
{
public:
    HookedBackend(std::unique_ptr<Kel::Cloud::Backend> real, PackHook hook)
        : m_real(std::move(real)), m_hook(std::move(hook))
    {
    }
    Kel::Cloud::Status check() override { return m_real->check(); }
    Kel::Cloud::Status listContainers(QList<Kel::Cloud::ObjectInfo>* c) override
    {
        return m_real->listContainers(c);
    }
    Kel::Cloud::Status list(const QString& p, QList<Kel::Cloud::ObjectInfo>* o) override
    {
        return m_real->list(p, o);
    }
    Kel::Cloud::Status stat(const QString& n, Kel::Cloud::ObjectInfo* i) override
    {
        return m_real->stat(n, i);
    }
    Kel::Cloud::Status read(const QString& n, qint64 o, qint64 l, QIODevice* s) override
    {
        return m_real->read(n, o, l, s);
    }
    Kel::Cloud::Status write(const QString& n, QIODevice* s, qint64 size) override
    {
        if (n.contains("/packs/")) {
            const Kel::Cloud::Status status = m_hook();
            if (!status.ok()) {
                return status;
            }
        }
        return m_real->write(n, s, size);
    }
    Kel::Cloud::Status remove(const QString& n) override { return m_real->remove(n); }

private:
    std::unique_ptr<Kel::Cloud::Backend> m_real;
    PackHook m_hook;
};

Orv::Repository::BackendFactory hooked(const Orv::Repository::BackendFactory& real, PackHook hook)
{
    return [real, hook](Kel::Cloud::Status* status) -> std::unique_ptr<Kel::Cloud::Backend> {
        return std::make_unique<HookedBackend>(real(status), hook);
    };
}

// The engine makes a new connection when one breaks and sends the pack
// again, up to the connection setting's count, then fails with the
// storage's own reason.

TEST_P(EngineFaultTest, BrokenConnectionsAreTriedAgainThenReported)
{
    std::atomic<int> breaks{0};
    location.backend = hooked(location.backend, [&breaks] {
        return breaks-- > 0 ? Kel::Cloud::Status::failure(Kel::Cloud::Operation::Error::Unreachable,
                                                          "connection reset by peer")
                            : Kel::Cloud::Status::success();
    });
    const Repository flaky(location);
    RunDescription d = run(true);
    d.retryInterval = 1;
    d.retryAttempts = 2;

    breaks = 2;
    const RunResult retried = Archiver(flaky, d).run();
    ASSERT_EQ(retried.outcome, RunResult::Outcome::Success) << retried.message.toStdString();

    breaks = 1000;
    d.forceFull = true;
    const RunResult failed = Archiver(flaky, d).run();
    EXPECT_EQ(failed.outcome, RunResult::Outcome::Failure);
    EXPECT_EQ(failed.message, "connection reset by peer");
    QList<Orv::Repository::GenerationInfo> generations;
    ASSERT_TRUE(repository->generations(d.planId, &generations).ok());
    EXPECT_EQ(generations.size(), 1) << "the failed full backup left no generation";

    const QByteArray to = QFile::encodeName(dir.filePath("out"));
    ASSERT_TRUE(restore(d, to).ok);
    EXPECT_EQ(describe(restored(to)), describe(source));
}

// The restore choices end to end: chosen paths, the original place with
// each rule for existing files, every algorithm, folders without content
// left out when asked, and a bunch removed.
TEST_P(EngineFaultTest, RestoreChoicesAndAlgorithms)
{
    for (const char* algorithm : {"aes-128", "aes-192"}) {
        RunDescription d = run(true);
        d.algorithm = algorithm;
        d.keepEmptyFolders = false;
        d.planId.replace(0, 1, algorithm == QByteArray("aes-128") ? "c" : "d");
        ASSERT_EQ(backup(d).outcome, RunResult::Outcome::Success) << algorithm;
        const QByteArray to = QFile::encodeName(dir.filePath(algorithm));
        ASSERT_TRUE(restore(d, to).ok) << algorithm;
        auto want = describe(source);
        want.remove("/empty folder");
        EXPECT_EQ(describe(restored(to)), want) << algorithm;
        ASSERT_TRUE(repository->removeBunch(d.planId).ok());
        QList<Orv::Repository::BunchInfo> bunches;
        ASSERT_TRUE(repository->bunches(&bunches).ok());
        EXPECT_TRUE(bunches.isEmpty()) << algorithm;
    }

    const RunDescription d = run(false);
    ASSERT_EQ(backup(d).outcome, RunResult::Outcome::Success);
    RestoreDescription r;
    r.bunch = d.planId;
    r.paths = {source + "/deep/level0/level1", source + "/link"};
    r.target.destination = QFile::encodeName(dir.filePath("chosen"));
    ASSERT_TRUE(Restorer(*repository, r).run().ok);
    const auto chosen = describe(restored(r.target.destination));
    EXPECT_TRUE(chosen.contains("/link"));
    EXPECT_TRUE(chosen.contains("/deep/level0/level1/level2"));
    EXPECT_FALSE(chosen.contains("/large.bin"));

    // Back to the original place: a lost file comes back, a changed one stays
    // unless overwriting, and only-newer replaces only what is older.
    const QByteArray lost = source + "/text with spaces.txt";
    const QByteArray changed = source + "/new\nline";
    QFile::remove(QString::fromLocal8Bit(lost));
    writeFile(changed, "changed since");
    struct Row
    {
        RestoreTarget::Existing existing;
        QByteArray newline;
    };
    const struct timespec future[2] = {{0, UTIME_OMIT}, {4000000000, 0}};
    const struct timespec past[2] = {{0, UTIME_OMIT}, {1000, 0}};
    for (const auto& [existing, expected] :
         {Row{RestoreTarget::Existing::SkipExisting, "changed since"},
          Row{RestoreTarget::Existing::OnlyNewer, "changed since"},
          Row{RestoreTarget::Existing::Overwrite, "newline"}}) {
        utimensat(AT_FDCWD, changed.constData(), future, 0);
        RestoreDescription back;
        back.bunch = d.planId;
        back.target.existing = existing;
        ASSERT_TRUE(Restorer(*repository, back).run().ok);
        QFile file(QString::fromLocal8Bit(changed));
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        EXPECT_EQ(file.readAll(), expected) << int(existing);
        EXPECT_TRUE(QFile::exists(QString::fromLocal8Bit(lost))) << int(existing);
    }
    utimensat(AT_FDCWD, changed.constData(), past, 0);
    RestoreDescription newer;
    newer.bunch = d.planId;
    newer.target.existing = RestoreTarget::Existing::OnlyNewer;
    writeFile(changed, "older than the backup");
    utimensat(AT_FDCWD, changed.constData(), past, 0);
    ASSERT_TRUE(Restorer(*repository, newer).run().ok);
    QFile file(QString::fromLocal8Bit(changed));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), "newline");
}

// A missing pack and a full restore target: the restore names what it could
// not write, brings back the rest, and leaves no file half written.
TEST_P(EngineFaultTest, MissingDataAndAFullTargetAreNamed)
{
    const RunDescription d = run(false);
    ASSERT_EQ(backup(d).outcome, RunResult::Outcome::Success);

    const QString small = dir.filePath("small");
    QDir().mkpath(small);
    ASSERT_EQ(QProcess::execute("mount", {"-t", "tmpfs", "-o", "size=3m", "tmpfs", small}), 0);
    const RestoreResult full = restore(d, QFile::encodeName(small));
    EXPECT_FALSE(full.ok);
    EXPECT_TRUE(full.message.startsWith("The restore target is full"))
        << full.message.toStdString();
    const auto want = describe(source);
    const auto got = describe(restored(QFile::encodeName(small)));
    for (auto it = got.cbegin(); it != got.cend(); ++it) {
        if (!it.value().startsWith("10")) {
            continue; // only regular files must be whole
        }
        EXPECT_EQ(it.value(), want.value(it.key())) << it.key().toStdString();
    }
    QProcess::execute("umount", {small});

    const QString pack = largestObject(dir.filePath("storage"));
    ASSERT_TRUE(QFile::remove(pack));
    const QByteArray to = QFile::encodeName(dir.filePath("out"));
    const RestoreResult missing = restore(d, to);
    EXPECT_FALSE(missing.ok);
    EXPECT_FALSE(missing.failed.isEmpty());
    const auto partial = describe(restored(to));
    EXPECT_EQ(partial.value("/link"), want.value("/link"));
    EXPECT_EQ(partial.value("/empty"), want.value("/empty"));
    EXPECT_FALSE(partial.contains("/large.bin"));
}

// A restore and a listing of a bunch go on while a backup of it runs: the
// run's open cache transaction makes nobody else wait. The backup is held
// at its first pack upload until they are done.
TEST_P(EngineFaultTest, ARestoreRunsWhileABackupOfTheSameBunchDoes)
{
    RunDescription d = run(true);
    ASSERT_EQ(backup(d).outcome, RunResult::Outcome::Success);
    std::promise<void> reached;
    std::promise<void> released;
    std::shared_future<void> release = released.get_future().share();
    std::atomic_bool first{true};
    Orv::Repository::Location held = location;
    held.backend = hooked(location.backend, [&] {
        if (first.exchange(false)) {
            reached.set_value();
            release.wait();
        }
        return Kel::Cloud::Status::success();
    });
    const Repository heldRepository(held);
    d.forceFull = true;
    d.uploadThreads = 1;
    RunResult second;
    std::thread running([&] { second = Archiver(heldRepository, d).run(); });
    reached.get_future().wait();

    const QByteArray to = QFile::encodeName(dir.filePath("out"));
    const RestoreResult r = restore(d, to);
    QList<Orv::Repository::GenerationInfo> generations;
    const Status listed = repository->generations(d.planId, &generations);
    released.set_value();
    running.join();
    ASSERT_TRUE(r.ok) << r.message.toStdString();
    EXPECT_TRUE(listed.ok());
    EXPECT_EQ(describe(restored(to)), describe(source));
    EXPECT_EQ(second.outcome, RunResult::Outcome::Success) << second.message.toStdString();
}

// What cannot be taken (here a followed link that leads nowhere) is a
// warning, counted and named; the run goes on and its point says so.
TEST_P(EngineFaultTest, WhatCannotBeTakenIsAWarningNamedInTheResult)
{
    RunDescription d = run(false);
    d.walk.symlinkMode = Orv::Common::SymlinkBackupMode::CurrentPlace;
    const RunResult result = backup(d);
    EXPECT_EQ(result.outcome, RunResult::Outcome::Warning) << result.message.toStdString();
    EXPECT_EQ(result.warnings, 1);
    ASSERT_EQ(result.problems.size(), 1);
    EXPECT_TRUE(result.problems.first().contains(QString::fromLocal8Bit(source + "/dangling")));
    QList<Orv::Repository::GenerationInfo> generations;
    ASSERT_TRUE(repository->generations(d.planId, &generations).ok());
    ASSERT_EQ(generations.size(), 1);
    EXPECT_EQ(generations.first().warningCount, 1);
    EXPECT_EQ(generations.first().points.first().status, Kel::Archive::PointStatus::Warning);
    const QByteArray to = QFile::encodeName(dir.filePath("out"));
    ASSERT_TRUE(restore(d, to).ok);
    auto want = describe(source);
    want.remove("/dangling");
    const auto got = describe(restored(to));
    EXPECT_EQ(got.value("/large.bin"), want.value("/large.bin"));
    EXPECT_EQ(got.value("/link").left(6), want.value("/large.bin").left(6)) << "followed";
    EXPECT_FALSE(got.contains("/dangling"));
}

INSTANTIATE_TEST_SUITE_P(Folder, EngineFaultTest, ::testing::Values(Storage::Folder),
                         [](const auto&) { return std::string("Folder"); });

INSTANTIATE_TEST_SUITE_P(Storages, EngineTest,
                         ::testing::Values(Storage::Folder, Storage::Sftp, Storage::S3,
                                           Storage::Azure),
                         OrvTest::StoragePeers::name);

} // namespace
