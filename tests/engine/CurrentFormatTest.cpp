// The current format end to end: every file version its own object, runs
// committed by manifests, restores of any run, on a folder and on the real
// storage peers.
#include "StoragePeers.h"
#include "kelBackupFormat/Records.h"
#include "kelCloud/Config.h"
#include "kelStreams/Hash.h"
#include "service/engine/CurrentArchiver.h"
#include "service/engine/CurrentBrowser.h"
#include "service/engine/CurrentRestorer.h"
#include "service/engine/CurrentSavedPlan.h"
#include "service/engine/CurrentStore.h"
#include "support/QtPrinters.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QMap>
#include <QProcess>
#include <QSet>
#include <QTemporaryDir>
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <random>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Orv::Engine;
using Orv::Repository::Repository;

using OrvTest::Storage;

namespace {

// By the bytes of the name, so that names that are no UTF-8 stay so.
void writeFile(const QByteArray& path, const QByteArray& data)
{
    const int fd = ::open(path.constData(), O_CREAT | O_TRUNC | O_WRONLY, 0644);
    ASSERT_GE(fd, 0) << path.constData();
    ASSERT_EQ(::write(fd, data.constData(), std::size_t(data.size())), data.size());
    ::close(fd);
}

QByteArray readFile(const QByteArray& path)
{
    QByteArray data;
    const int fd = ::open(path.constData(), O_RDONLY);
    char buffer[65536];
    for (ssize_t n; fd >= 0 && (n = ::read(fd, buffer, sizeof buffer)) > 0;) {
        data.append(buffer, int(n));
    }
    ::close(fd);
    return data;
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

// Names and shapes that break backup programs, a file larger than one piece
// and a hard link.
void makeTree(const QByteArray& root)
{
    mkdir(root.constData(), 0755);
    writeFile(root + "/empty", QByteArray());
    writeFile(root + "/text with spaces.txt", QByteArray(20000, 'a') + "end");
    writeFile(root + "/new\nline", "newline");
    writeFile(root + "/bad\xff\xfe name@%", "not utf-8");
    writeFile(root + "/large.bin", randomData(9 * 1024 * 1024 + 7, 1));
    QByteArray deep = root + "/deep";
    for (int i = 0; i < 30; ++i) {
        deep += "/level" + QByteArray::number(i);
    }
    QDir().mkpath(QString::fromLocal8Bit(deep));
    writeFile(deep + "/bottom", "bottom");
    mkdir((root + "/empty folder").constData(), 0700);
    ASSERT_EQ(symlink("large.bin", (root + "/link").constData()), 0);
    ASSERT_EQ(link((root + "/new\nline").constData(), (root + "/hard").constData()), 0);
    ASSERT_EQ(mkfifo((root + "/fifo").constData(), 0600), 0);
    chmod((root + "/text with spaces.txt").constData(), 0604);
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
        while (dirent* e = dir ? readdir(dir) : nullptr) {
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
                line += ' ' + QByteArray::number(qint64(st.st_size)) + ' ' +
                        Kel::Streams::sha256(readFile(root + path)).toHex().left(16);
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
        if (dir) {
            closedir(dir);
        }
    }
    return out;
}

class CurrentFormatTest : public ::testing::TestWithParam<Storage>
{
protected:
    static void TearDownTestSuite() { OrvTest::StoragePeers::stop(); }

    // Qt cannot name files whose names are no UTF-8: they go by their bytes.
    void TearDown() override { QProcess::execute("rm", {"-rf", dir.path()}); }

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
        d.planId = QStringLiteral("7a2b3c4d-0000-4000-8000-00000000000%1").arg(encrypted ? 1 : 2);
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
        return CurrentArchiver(*repository, d).run();
    }

    RestoreResult restore(const RunDescription& d, const QByteArray& to,
                          const QDateTime& when = QDateTime(),
                          const QList<QByteArray>& paths = {}) const
    {
        RestoreDescription r;
        r.bunch = d.planId;
        r.pointInTime = when;
        r.paths = paths;
        r.password = d.password;
        r.target.destination = to;
        return CurrentRestorer(*repository, r).run();
    }

    QByteArray out(const QString& name) const { return QFile::encodeName(dir.filePath(name)); }
    QByteArray restored(const QByteArray& to) const { return to + source; }

    QTemporaryDir dir;
    QByteArray source;
    Orv::Repository::Location location;
    std::unique_ptr<Repository> repository;
};

// Three runs an hour apart with changes between them, an unchanged run that
// stores only its manifest, then the state at each point in time. At block
// level the last run stores the large file's one changed block.
TEST_P(CurrentFormatTest, EveryRunComesBackAtItsPointInTime)
{
    struct Row
    {
        const char* name;
        bool encrypted;
        bool blocks;
    };
    const Row rows[] = {{"plain", false, false},
                        {"compressed and encrypted", true, false},
                        {"compressed and encrypted, block level", true, true}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const bool encrypted = row.encrypted;
        const QString tag = QString::number(&row - rows);
        source = QFile::encodeName(dir.filePath("source-" + tag));
        makeTree(source);
        RunDescription d = run(encrypted);
        d.blockLevel = row.blocks;
        if (row.blocks) {
            d.planId = QStringLiteral("7a2b3c4d-0000-4000-8000-000000000003");
        }
        QDateTime clock = QDateTime::fromString("2026-11-01T10:00:00Z", Qt::ISODate);
        d.now = [&clock] { return clock; };
        QList<QMap<QByteArray, QByteArray>> states;
        d.savedPlan = "<Plan><Name>Documents</Name><Password>****</Password></Plan>";

        const RunResult first = backup(d);
        ASSERT_EQ(first.outcome, RunResult::Outcome::Success) << first.message.toStdString();
        {
            CurrentStore store(*repository, d.planId);
            ASSERT_TRUE(store.connect().ok());
            ASSERT_TRUE(store.openKeys({false, {}, d.password, {}, true}).ok());
            QByteArray saved;
            const auto status = readSavedPlan(store, &saved);
            EXPECT_TRUE(status.ok()) << status.message.toStdString();
            EXPECT_EQ(saved, d.savedPlan);
            QByteArray raw;
            ASSERT_TRUE(store.backend().read(store.layout().savedPlan(d.planId), 0, -1, &raw).ok());
            EXPECT_EQ(raw.contains("Documents"), !encrypted) << "sealed when encrypting";
        }
        d.savedPlan.clear();
        EXPECT_TRUE(first.full);
        EXPECT_GT(first.bytesUploaded, encrypted ? 9000000u : 9400000u);
        states.append(describe(source));
        if (GetParam() == Storage::Folder && !encrypted && !row.blocks) {
            const QString files = dir.filePath("storage/host1/cbf/" + d.planId + "/files/p");
            EXPECT_TRUE(
                QDir(files + QString::fromLocal8Bit(source) + "/bad%ff%fe name%40%25").exists())
                << "the source tree's shape, names escaped";
        }

        clock = clock.addSecs(1800);
        const RunResult unchanged = backup(d);
        ASSERT_EQ(unchanged.outcome, RunResult::Outcome::Success);
        {
            CurrentStore store(*repository, d.planId);
            ASSERT_TRUE(store.connect().ok());
            QByteArray saved;
            EXPECT_EQ(readSavedPlan(store, &saved).error,
                      Kel::Cloud::Operation::Error::ObjectNotFound)
                << "a plan that no longer saves itself leaves no stale copy";
        }
        EXPECT_EQ(unchanged.filesRead, 0u);
        EXPECT_LT(unchanged.bytesUploaded, 16u * 1024) << "the manifest alone";
        if (GetParam() == Storage::Folder) {
            const QFileInfoList manifests =
                QDir(dir.filePath("storage/host1/cbf/" + d.planId + "/manifests"))
                    .entryInfoList(QDir::Files, QDir::Name);
            ASSERT_EQ(manifests.size(), 2);
            QFile second(manifests.at(1).filePath());
            ASSERT_TRUE(second.open(QIODevice::ReadOnly));
            Kel::Archive::ManifestHeader header;
            ASSERT_TRUE(Kel::Archive::readManifestHeader(second.readAll(), &header));
            EXPECT_EQ(header.base, manifests.at(0).fileName())
                << "a run that changed nothing stores a delta on the run before";
        }

        clock = clock.addSecs(1800);
        writeFile(source + "/new\nline", "changed through the hard link");
        ASSERT_TRUE(QFile::remove(QString::fromLocal8Bit(source + "/text with spaces.txt")));
        writeFile(source + "/deep/added", "added");
        const RunResult second = backup(d);
        ASSERT_EQ(second.outcome, RunResult::Outcome::Success) << second.message.toStdString();
        EXPECT_EQ(second.filesRead, 2u);
        EXPECT_LT(second.bytesUploaded, 64u * 1024);
        states.append(describe(source));

        clock = clock.addSecs(3600);
        QFile large(QString::fromLocal8Bit(source + "/large.bin"));
        ASSERT_TRUE(large.open(QIODevice::ReadWrite));
        large.seek(5 * 1024 * 1024);
        large.write("X");
        large.close();
        ASSERT_TRUE(QDir(QString::fromLocal8Bit(source + "/empty folder")).removeRecursively());
        const RunResult third = backup(d);
        ASSERT_EQ(third.outcome, RunResult::Outcome::Success) << third.message.toStdString();
        if (row.blocks) {
            EXPECT_LT(third.bytesUploaded, 4u * 1024 * 1024) << "one block of 9 MiB";
        }
        states.append(describe(source));

        const QDateTime start = QDateTime::fromString("2026-11-01T10:00:00Z", Qt::ISODate);
        const QDateTime times[] = {start.addSecs(1799), start.addSecs(3600 + 1), QDateTime()};
        for (int i = 0; i < 3; ++i) {
            const QByteArray to = out(QStringLiteral("out-%1-%2").arg(tag).arg(i));
            const RestoreResult r = restore(d, to, times[i]);
            ASSERT_TRUE(r.ok) << i << r.message.toStdString() << r.failed.join('\n').toStdString();
            EXPECT_EQ(describe(restored(to)), states.at(i)) << "point " << i;
        }
        if (GetParam() == Storage::Folder) {
            // The latest state with what the source lost on the way: the
            // removed file as it was last backed up, the removed folder.
            RestoreDescription all;
            all.bunch = d.planId;
            all.password = d.password;
            all.includeDeleted = true;
            all.target.destination = out(QStringLiteral("deleted-%1").arg(tag));
            const RestoreResult r = CurrentRestorer(*repository, all).run();
            ASSERT_TRUE(r.ok) << r.failed.join('\n').toStdString();
            auto want = states.at(2);
            want.insert("/text with spaces.txt", states.at(0).value("/text with spaces.txt"));
            want.insert("/empty folder", states.at(1).value("/empty folder"));
            EXPECT_EQ(describe(restored(all.target.destination)), want);
        }
        const RestoreResult early = restore(d, out("early"), start.addSecs(-1));
        EXPECT_FALSE(early.ok);
        EXPECT_FALSE(QFileInfo::exists(dir.filePath("early")));

        // One chosen folder of the first run, into a folder that has one of
        // its files already: skipped, as asked.
        const QByteArray to = out(QStringLiteral("chosen-%1").arg(tag));
        const QByteArray bottom = "/deep/level0/level1";
        QDir().mkpath(QString::fromLocal8Bit(restored(to) + bottom));
        RestoreDescription r;
        r.bunch = d.planId;
        r.password = d.password;
        r.pointInTime = times[0];
        r.paths = {source + "/deep"};
        r.target.destination = to;
        r.target.existing = RestoreTarget::Existing::SkipExisting;
        writeFile(restored(to) + "/deep/added", "kept");
        const RestoreResult chosen = CurrentRestorer(*repository, r).run();
        ASSERT_TRUE(chosen.ok) << chosen.failed.join('\n').toStdString();
        const auto got = describe(restored(to));
        EXPECT_FALSE(got.contains("/large.bin"));
        EXPECT_EQ(got.value("/deep/level0/level1/level2"),
                  states.at(0).value("/deep/level0/level1/level2"));
    }
}

// Faults need only one storage: the folder, where the test reaches the
// stored objects.
using CurrentFaultTest = CurrentFormatTest;

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

TEST_P(CurrentFaultTest, WrongPasswordChangesNothingAndBadVersionsAreNamed)
{
    RunDescription d = run(true);
    d.keepEmptyFolders = false;
    ASSERT_EQ(backup(d).outcome, RunResult::Outcome::Success);
    const QString storage = dir.filePath("storage/host1/cbf/" + d.planId);
    // Sealed names keep the tree's shape: large.bin's versions sit as many
    // folders deep as its path has parts, and no name shows.
    QStringList stored;
    for (QDirIterator it(storage + "/files", QDir::AllEntries | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
         it.hasNext();) {
        stored << it.next().mid(storage.size() + 7);
    }
    const int parts = QString::fromLocal8Bit(source + "/large.bin").count('/');
    EXPECT_TRUE(std::any_of(stored.begin(), stored.end(), [parts](const QString& name) {
        return name.startsWith("e/") && name.count('/') == parts + 1 && name.contains('@');
    })) << stored.join('\n').toStdString();
    EXPECT_FALSE(stored.join('\n').contains("large")) << "names are sealed when encrypting";

    RunDescription wrong = d;
    wrong.password = "wrong horse";
    const RestoreResult refused = restore(wrong, out("refused"));
    EXPECT_TRUE(refused.message.startsWith("Wrong password")) << refused.message.toStdString();
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("refused")));
    writeFile(source + "/empty", "now it has content");
    const RunResult refusedRun = backup(wrong);
    EXPECT_EQ(refusedRun.outcome, RunResult::Outcome::Failure);
    EXPECT_TRUE(refusedRun.message.startsWith("Wrong password"));
    EXPECT_EQ(QDir(storage + "/manifests").entryList(QDir::Files).size(), 1);

    // One flipped byte in the large file's version, another version gone.
    QFile version(largestObject(storage));
    ASSERT_TRUE(version.open(QIODevice::ReadWrite));
    version.seek(5000);
    const char byte = version.read(1).at(0);
    version.seek(5000);
    version.write(QByteArray(1, char(byte ^ 0x20)));
    version.close();
    QDirIterator it(storage + "/files", QDir::Files, QDirIterator::Subdirectories);
    QString smallest;
    while (it.hasNext()) {
        it.next();
        if (smallest.isEmpty() || it.fileInfo().size() < QFileInfo(smallest).size()) {
            smallest = it.filePath();
        }
    }
    ASSERT_TRUE(QFile::remove(smallest)) << "the empty file's version";

    // The check names both, and nothing else.
    QStringList problems;
    ASSERT_TRUE(CurrentBrowser(*repository).check(d.planId, d.password, &problems).ok());
    ASSERT_EQ(problems.size(), 2) << problems.join('\n').toStdString();
    const QString found = problems.join('\n');
    EXPECT_TRUE(found.contains("large.bin: its version") && found.contains("is damaged"))
        << found.toStdString();
    EXPECT_TRUE(found.contains("empty: its version") && found.contains("is missing"))
        << found.toStdString();
    EXPECT_FALSE(CurrentBrowser(*repository).check(d.planId, "wrong horse", &problems).ok());

    const QByteArray to = out("out");
    const RestoreResult damaged = restore(d, to);
    EXPECT_FALSE(damaged.ok);
    ASSERT_EQ(damaged.failed.size(), 2) << damaged.failed.join('\n').toStdString();
    const QString failed = damaged.failed.join('\n');
    EXPECT_TRUE(failed.contains("large.bin: its version") && failed.contains("is damaged"))
        << failed.toStdString();
    EXPECT_TRUE(failed.contains("empty: its version") && failed.contains("is missing"))
        << failed.toStdString();
    const auto want = describe(source);
    const auto got = describe(restored(to));
    EXPECT_EQ(got.value("/new\nline"), want.value("/new\nline"));
    EXPECT_EQ(got.value("/deep"), want.value("/deep"));
    EXPECT_FALSE(got.contains("/large.bin")) << "no half file under the real name";
    EXPECT_FALSE(got.contains("/empty folder")) << "empty folders were not to be kept";
}

// A source out of reach (a folder not mounted) is no source deleted: the run
// keeps what it last backed up of it, retention of deleted files leaves it
// alone, and the latest run restores it whole.
TEST_P(CurrentFaultTest, ASourceOutOfReachKeepsItsVersions)
{
    RunDescription d = run(false);
    d.versions.deletedAfterDays = 0;
    QDateTime clock = QDateTime::fromString("2026-11-01T10:00:00Z", Qt::ISODate);
    d.now = [&clock] { return clock; };
    ASSERT_EQ(backup(d).outcome, RunResult::Outcome::Success);
    const auto before = describe(source);

    const QString away = dir.filePath("unmounted");
    ASSERT_TRUE(QDir().rename(QString::fromLocal8Bit(source), away));
    clock = clock.addDays(2);
    const RunResult missing = backup(d);
    ASSERT_TRUE(QDir().rename(away, QString::fromLocal8Bit(source)));
    EXPECT_EQ(missing.outcome, RunResult::Outcome::Warning) << missing.message.toStdString();
    EXPECT_FALSE(missing.message.contains("deleted")) << missing.message.toStdString();

    const QByteArray to = out("kept");
    const RestoreResult r = restore(d, to);
    ASSERT_TRUE(r.ok) << r.message.toStdString() << r.failed.join('\n').toStdString();
    EXPECT_EQ(describe(restored(to)), before);

    // The whole manifest the newest run builds on is lost, and the cache
    // with it: the next run stores everything again instead of failing.
    const QString manifests = dir.filePath("storage/host1/cbf/" + d.planId + "/manifests");
    const QStringList runs = QDir(manifests).entryList(QDir::Files, QDir::Name);
    ASSERT_EQ(runs.size(), 2);
    ASSERT_TRUE(QFile::remove(manifests + "/" + runs.first()));
    ASSERT_TRUE(QDir(location.cacheFolder).removeRecursively());
    clock = clock.addDays(1);
    const RunResult again = backup(d);
    EXPECT_EQ(again.outcome, RunResult::Outcome::Warning) << again.message.toStdString();
    EXPECT_TRUE(again.problems.join('\n').contains("could not be read"));
    const QByteArray anew = out("anew");
    ASSERT_TRUE(restore(d, anew).ok);
    EXPECT_EQ(describe(restored(anew)), describe(source));
}

// The objects of one plan below the storage folder: every version object by
// its run, and the runs with a manifest.
struct Stored
{
    QMultiMap<QString, QString> versions; // path key folder -> run
    QSet<QString> manifests;
};

Stored stored(const QString& plan)
{
    Stored out;
    QDirIterator it(plan + "/files", QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        out.versions.insert(it.fileInfo().path(), it.fileName().mid(1));
    }
    const QStringList runs = QDir(plan + "/manifests").entryList(QDir::Files);
    out.manifests = QSet<QString>(runs.begin(), runs.end());
    return out;
}

// Runs a day or more apart with changes between them, then a run whose
// policy keeps two versions of each file and drops files gone for five days,
// with objects of a run cut off before it and of a run still going. Every
// point in time then restores what was kept; what retention removed is left
// out, not called missing, while a version lost otherwise still is.
TEST_P(CurrentFaultTest, RetentionKeepsWhatThePolicySaysAndRestoresStayTruthful)
{
    RunDescription d = run(false);
    QDateTime clock = QDateTime::fromString("2026-03-01T10:00:00Z", Qt::ISODate);
    d.now = [&clock] { return clock; };
    const QString plan = dir.filePath("storage/host1/cbf/" + d.planId);
    const QString notes = plan + "/files/p" + QString::fromLocal8Bit(source) + "/notes";
    QList<QMap<QByteArray, QByteArray>> states;
    QStringList points;
    auto step = [&](int days) {
        clock = clock.addDays(days);
        const RunResult r = backup(d);
        ASSERT_EQ(r.outcome, RunResult::Outcome::Success) << r.message.toStdString();
        states.append(describe(source));
        points.append(r.point);
    };
    writeFile(source + "/notes", "first");
    writeFile(source + "/gone.txt", "soon gone");
    step(0);
    writeFile(source + "/notes", "second");
    step(10);
    writeFile(source + "/notes", "third");
    ASSERT_TRUE(QFile::remove(QString::fromLocal8Bit(source + "/gone.txt")));
    step(10);
    ASSERT_EQ(stored(plan).versions.count(notes), 3);

    // What a run cut off five days ago left, and what runs going on
    // elsewhere have stored so far: one that started after this one, one
    // that started an hour before it.
    const QString cutOff = Kel::Archive::Layout::newId(clock.addDays(5));
    const QString going = Kel::Archive::Layout::newId(clock.addDays(11));
    const QString started = Kel::Archive::Layout::newId(clock.addDays(10).addSecs(-3600));
    ASSERT_TRUE(QFile::copy(notes + "/@" + points.at(2), notes + "/@" + cutOff));
    ASSERT_TRUE(QFile::copy(notes + "/@" + points.at(2), notes + "/@" + going));
    ASSERT_TRUE(QFile::copy(notes + "/@" + points.at(2), notes + "/@" + started));

    d.versions.keep = 2;
    d.versions.deletedAfterDays = 5;
    clock = clock.addDays(10);
    const RunResult pruned = backup(d);
    ASSERT_EQ(pruned.outcome, RunResult::Outcome::Success) << pruned.message.toStdString();
    EXPECT_EQ(pruned.versionsRemoved, 2u) << "the first notes and gone.txt";
    EXPECT_TRUE(pruned.message.contains("Retention deleted 2 file version(s)"))
        << pruned.message.toStdString();
    EXPECT_TRUE(pruned.message.contains("1 object(s) left by interrupted runs"))
        << pruned.message.toStdString();
    const Stored after = stored(plan);
    QStringList kept = after.versions.values(notes);
    kept.sort();
    EXPECT_EQ(kept, (QStringList{points.at(1), points.at(2), started, going}));
    for (auto it = after.versions.cbegin(); it != after.versions.cend(); ++it) {
        EXPECT_TRUE(it.value() == going || it.value() == started ||
                    after.manifests.contains(it.value()))
            << it.key().toStdString();
    }
    EXPECT_TRUE(QFile::exists(plan + "/retention/" + pruned.point));

    // Each point: what it had, less what retention removed.
    const QList<QByteArray> removed[] = {{"/notes", "/gone.txt"}, {"/gone.txt"}, {}};
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        RestoreDescription r;
        r.bunch = d.planId;
        r.point = points.at(i);
        r.target.destination = out(QStringLiteral("at-%1").arg(i));
        const RestoreResult result = CurrentRestorer(*repository, r).run();
        EXPECT_TRUE(result.ok) << result.failed.join('\n').toStdString();
        EXPECT_EQ(result.retired, quint64(removed[i].size()));
        QMap<QByteArray, QByteArray> want = states.at(i);
        for (const QByteArray& path : removed[i]) {
            want.remove(path);
        }
        EXPECT_EQ(describe(restored(r.target.destination)), want);
    }

    // The same point with one kept version lost from the storage.
    ASSERT_TRUE(QFile::remove(notes + "/@" + points.at(1)));
    RestoreDescription r;
    r.bunch = d.planId;
    r.point = points.at(1);
    r.target.destination = out("lost");
    const RestoreResult lost = CurrentRestorer(*repository, r).run();
    EXPECT_FALSE(lost.ok);
    ASSERT_EQ(lost.failed.size(), 1);
    EXPECT_TRUE(lost.failed.first().contains("notes: its version " + points.at(1) + " is missing"))
        << lost.failed.first().toStdString();
    // The storage check tells the same: the lost version, none that
    // retention removed.
    QStringList problems;
    ASSERT_TRUE(CurrentBrowser(*repository).check(d.planId, d.password, &problems).ok());
    ASSERT_EQ(problems.size(), 1) << problems.join('\n').toStdString();
    EXPECT_TRUE(problems.first().contains("its version " + points.at(1)))
        << problems.first().toStdString();
}

// Backups killed at random moments, each of them deleting what its policy no
// longer keeps: every run that committed restores whole or less only what
// retention removed, and a run after the last kill completes and leaves no
// object of the killed runs behind.
TEST_P(CurrentFaultTest, KilledRunsLeaveEveryEarlierRunRestorable)
{
    RunDescription d = run(true);
    d.versions.keep = 2;
    const RunResult first = backup(d);
    ASSERT_EQ(first.outcome, RunResult::Outcome::Success);
    std::mt19937 random(20261123);
    const int rounds = qEnvironmentVariableIsSet("ORV_KILL_ROUNDS")
                           ? qEnvironmentVariableIntValue("ORV_KILL_ROUNDS")
                           : 20;
    int killed = 0;
    for (int round = 0; round < rounds; ++round) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            RunDescription mine = d;
            for (int i = 0;; ++i) {
                mine.forceFull = i % 2 == 0;
                backup(mine);
            }
        }
        usleep(useconds_t(std::uniform_int_distribution<int>(20, 400)(random) * 1000));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        killed += WIFSIGNALED(status);

        const QByteArray to = out(QStringLiteral("out%1").arg(round));
        const RestoreResult r = restore(d, to);
        ASSERT_TRUE(r.ok) << "round " << round << ": " << r.message.toStdString()
                          << r.failed.join('\n').toStdString();
        EXPECT_EQ(describe(restored(to)), describe(source));
        QDir(QString::fromLocal8Bit(to)).removeRecursively();
        RestoreDescription earliest;
        earliest.bunch = d.planId;
        earliest.point = first.point;
        earliest.password = d.password;
        earliest.target.destination = to;
        const RestoreResult e = CurrentRestorer(*repository, earliest).run();
        ASSERT_TRUE(e.ok) << "round " << round << ": " << e.failed.join('\n').toStdString();
        QDir(QString::fromLocal8Bit(to)).removeRecursively();
    }
    EXPECT_EQ(killed, rounds);

    // A day later the killed runs' objects are swept; not before, since
    // such a run might be another machine's still going.
    writeFile(source + "/after", "after the kills");
    const QDateTime later = QDateTime::currentDateTimeUtc().addDays(2);
    d.now = [later] { return later; };
    const RunResult last = backup(d);
    ASSERT_EQ(last.outcome, RunResult::Outcome::Success) << last.message.toStdString();
    EXPECT_EQ(last.filesRead, 1u);
    const QByteArray to = out("final");
    ASSERT_TRUE(restore(d, to).ok);
    EXPECT_EQ(describe(restored(to)), describe(source));
    const Stored left = stored(dir.filePath("storage/host1/cbf/" + d.planId));
    for (const QString& folder : left.versions.uniqueKeys()) {
        EXPECT_LE(left.versions.count(folder), 2) << folder.toStdString();
    }
    for (const QString& version : left.versions) {
        EXPECT_TRUE(left.manifests.contains(version)) << version.toStdString();
    }
}

// Block level on a large file, on the folder, where the test reaches the
// stored objects.
using CurrentBlockTest = CurrentFormatTest;

// Random bytes from the system, fast enough for hundreds of MiB.
QByteArray randomSlice(int size)
{
    QFile random(QStringLiteral("/dev/urandom"));
    return random.open(QIODevice::ReadOnly) ? random.read(size) : QByteArray();
}

void writeRandomFile(const QByteArray& path, qint64 size)
{
    QFile file(QString::fromLocal8Bit(path));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    for (qint64 done = 0; done < size;) {
        const int n = int(std::min<qint64>(size - done, 8 * 1024 * 1024));
        ASSERT_EQ(file.write(randomSlice(n)), n);
        done += n;
    }
}

void overwrite(const QByteArray& path, qint64 offset, const QByteArray& data)
{
    const int fd = ::open(path.constData(), O_WRONLY);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::pwrite(fd, data.constData(), std::size_t(data.size()), offset), data.size());
    ::close(fd);
}

// A copy of the file with bytes inserted at an offset, put in its place.
void insert(const QByteArray& path, qint64 offset, const QByteArray& data)
{
    QFile from(QString::fromLocal8Bit(path));
    QFile to(QString::fromLocal8Bit(path + ".new"));
    ASSERT_TRUE(from.open(QIODevice::ReadOnly) && to.open(QIODevice::WriteOnly));
    to.write(from.read(offset) + data);
    while (!from.atEnd()) {
        to.write(from.read(8 * 1024 * 1024));
    }
    to.close();
    ASSERT_EQ(::rename((path + ".new").constData(), path.constData()), 0);
}

// One changed block of a 200 MB file stores about one block; a forced full
// run stores it whole; a few bytes inserted near its start store little,
// since blocks are cut by content; a file rewritten through is stored whole.
// Every point restores bit for bit, and a damaged full version is named
// while the rest restores.
TEST_P(CurrentBlockTest, ChangedBlocksOfALargeFileAreAllThatIsStored)
{
    constexpr qint64 kSize = 200 * 1000 * 1000;
    constexpr quint64 kGenerous = 16 * 1024 * 1024;
    const QByteArray big = source + "/big.bin";
    writeRandomFile(big, kSize);
    RunDescription d = run(false);
    d.blockLevel = true;
    const QDateTime start = QDateTime::fromString("2026-11-01T10:00:00Z", Qt::ISODate);
    QDateTime clock = start;
    d.now = [&clock] { return clock; };
    QList<QMap<QByteArray, QByteArray>> states;
    const auto step = [&](const char* what, bool forceFull) {
        SCOPED_TRACE(what);
        d.forceFull = forceFull;
        const RunResult r = backup(d);
        EXPECT_EQ(r.outcome, RunResult::Outcome::Success) << r.message.toStdString();
        states.append(describe(source));
        clock = clock.addSecs(3600);
        return r.bytesUploaded;
    };

    EXPECT_GT(step("first", false), quint64(kSize));
    overwrite(big, kSize / 2, randomSlice(4096));
    EXPECT_LT(step("one block changed", false), kGenerous);
    const RunResult unchanged = backup(d);
    ASSERT_EQ(unchanged.outcome, RunResult::Outcome::Success);
    EXPECT_EQ(unchanged.filesRead, 0u) << "a delta taken over as it is";
    clock = clock.addSecs(3600);
    overwrite(big, kSize / 4, randomSlice(4096));
    EXPECT_GT(step("forced full", true), quint64(kSize));
    insert(big, 1000, "ten bytes!");
    EXPECT_LT(step("inserted near the start", false), kGenerous);
    writeRandomFile(big, 20 * 1000 * 1000);
    EXPECT_GT(step("rewritten", false), 20u * 1000 * 1000);

    // The unchanged run's point has the delta of the run before it.
    const QDateTime points[] = {start.addSecs(1), start.addSecs(2 * 3600 + 1),
                                start.addSecs(3 * 3600 + 1), start.addSecs(4 * 3600 + 1),
                                QDateTime()};
    for (int i = 0; i < 5; ++i) {
        const QByteArray to = out(QStringLiteral("out-%1").arg(i));
        const RestoreResult r = restore(d, to, points[i]);
        ASSERT_TRUE(r.ok) << i << r.message.toStdString() << r.failed.join('\n').toStdString();
        EXPECT_EQ(describe(restored(to)), states.at(i)) << "point " << i;
        QProcess::execute("rm", {"-rf", QString::fromLocal8Bit(to)});
    }

    // Versions of the file, oldest first: full, delta, full, delta, full.
    QStringList versions;
    QDirIterator it(dir.filePath("storage"), QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        if (it.next().contains("/big.bin/@")) {
            versions.append(it.filePath());
        }
    }
    versions.sort();
    ASSERT_EQ(versions.size(), 5);
    QFile base(versions.at(2));
    ASSERT_TRUE(base.open(QIODevice::ReadWrite));
    base.seek(base.size() / 2);
    const char byte = base.read(1).at(0);
    base.seek(base.size() / 2);
    base.write(QByteArray(1, char(byte ^ 1)));
    base.close();
    const QByteArray to = out("damaged");
    const RestoreResult damaged = restore(d, to, points[3]);
    ASSERT_EQ(damaged.failed.size(), 1) << damaged.failed.join('\n').toStdString();
    EXPECT_TRUE(damaged.failed.at(0).contains("big.bin: its base version") &&
                damaged.failed.at(0).endsWith("is damaged"))
        << damaged.failed.at(0).toStdString();
    auto want = states.at(3);
    want.remove("/big.bin");
    EXPECT_EQ(describe(restored(to)), want);
    const RestoreResult latest = restore(d, out("latest"));
    EXPECT_TRUE(latest.ok) << "the rewritten file was stored whole, needing no base";
}

// A full version whose block map does not open is no base: the next change
// is stored whole, and the one after builds on that. A delta whose base is
// gone is named; the rest restores.
TEST_P(CurrentFaultTest, BadBlockMapsAndMissingBasesAreNoHarm)
{
    RunDescription d = run(true);
    d.blockLevel = true;
    QDateTime clock = QDateTime::fromString("2026-11-01T10:00:00Z", Qt::ISODate);
    d.now = [&clock] { return clock; };
    const auto step = [&] {
        clock = clock.addSecs(3600);
        const RunResult r = backup(d);
        EXPECT_EQ(r.outcome, RunResult::Outcome::Success) << r.message.toStdString();
        return r.bytesUploaded;
    };
    step();
    const QString storage = dir.filePath("storage/host1/cbf/" + d.planId);
    const QString first = largestObject(storage);
    QFile version(first);
    ASSERT_TRUE(version.open(QIODevice::ReadWrite));
    version.seek(version.size() - 20);
    const char byte = version.read(1).at(0);
    version.seek(version.size() - 20);
    version.write(QByteArray(1, char(byte ^ 1)));
    version.close();

    const QByteArray large = source + "/large.bin";
    overwrite(large, 5 * 1024 * 1024, "changed");
    EXPECT_GT(step(), 9u * 1024 * 1024) << "stored whole";
    overwrite(large, 2 * 1024 * 1024, "changed");
    EXPECT_LT(step(), 4u * 1024 * 1024) << "a delta on the whole version";

    QStringList versions = QDir(QFileInfo(first).path()).entryList(QDir::Files, QDir::Name);
    ASSERT_EQ(versions.size(), 3);
    ASSERT_TRUE(QFile::remove(QFileInfo(first).path() + '/' + versions.at(1)));
    const QByteArray to = out("out");
    const RestoreResult r = restore(d, to);
    ASSERT_EQ(r.failed.size(), 1) << r.failed.join('\n').toStdString();
    EXPECT_TRUE(r.failed.at(0).contains("large.bin: its base version") &&
                r.failed.at(0).endsWith("is missing from the storage"))
        << r.failed.at(0).toStdString();
    auto want = describe(source);
    want.remove("/large.bin");
    EXPECT_EQ(describe(restored(to)), want);
}

INSTANTIATE_TEST_SUITE_P(Folder, CurrentBlockTest, ::testing::Values(Storage::Folder),
                         [](const auto&) { return std::string("Folder"); });

INSTANTIATE_TEST_SUITE_P(Folder, CurrentFaultTest, ::testing::Values(Storage::Folder),
                         [](const auto&) { return std::string("Folder"); });

INSTANTIATE_TEST_SUITE_P(Storages, CurrentFormatTest,
                         ::testing::Values(Storage::Folder, Storage::Sftp, Storage::S3,
                                           Storage::Azure),
                         OrvTest::StoragePeers::name);

} // namespace
