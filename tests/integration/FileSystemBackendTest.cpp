#include "kelCloud/Backend.h"
#include "kelCloud/Config.h"
#include "support/BackendContract.h"
#include "support/QtPrinters.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Kel::Cloud;

namespace {

std::unique_ptr<Backend> folderBackend(const QString& path, Status* status)
{
    return Backend::create({{QLatin1String(Config::Type), QStringLiteral("FileSystem")},
                            {QLatin1String(Config::Path), path}},
                           status);
}

QStringList filesBelow(const QString& folder)
{
    QStringList files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        files << it.next().mid(folder.size() + 1);
    files.sort();
    return files;
}

} // namespace

TEST(FileSystemBackend, CheckThenObjectsRoundTripInTheFolder)
{
    QTemporaryDir dir;
    Status status;
    auto backend = folderBackend(dir.path(), &status);
    ASSERT_TRUE(backend) << status.message.toStdString();
    ASSERT_TRUE(backend->check().ok());
    OrvTest::exerciseObjects(*backend);
    // The objects are plain files under their names, and nothing else is left.
    EXPECT_EQ(filesBelow(dir.path()), QStringList({"a/b/one.bin", "c/empty", "top"}));
    QFile top(dir.filePath(QStringLiteral("top")));
    ASSERT_TRUE(top.open(QIODevice::ReadOnly));
    EXPECT_EQ(top.readAll(), "t");
}

TEST(FileSystemBackend, ContainerMustBeAnExistingFolder)
{
    QTemporaryDir dir;
    QFile file(dir.filePath(QStringLiteral("file")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    Status status;
    for (const QString& path : {dir.filePath(QStringLiteral("missing")), file.fileName()}) {
        auto backend = folderBackend(path, &status);
        ASSERT_TRUE(backend);
        const Status checked = backend->check();
        EXPECT_EQ(checked.error, Operation::Error::ContainerNotFound);
        EXPECT_TRUE(checked.message.contains(path)) << checked.message.toStdString();
        // Writing does not make a missing container appear.
        EXPECT_EQ(backend->write(QStringLiteral("x"), QByteArray("1")).error,
                  Operation::Error::ContainerNotFound);
    }
    EXPECT_FALSE(QFileInfo::exists(dir.filePath(QStringLiteral("missing"))));
    for (const char* path : {"", "relative/folder"}) {
        EXPECT_FALSE(folderBackend(QString::fromLatin1(path), &status)) << path;
        EXPECT_EQ(status.error, Operation::Error::InvalidConfiguration) << path;
    }
}

TEST(FileSystemBackend, UnwritableContainerFailsTheCheck)
{
    // Permissions do not stop root, which runs the tests; a folder of the
    // kernel's own file system stops everyone.
    Status status;
    auto backend = folderBackend(QStringLiteral("/proc/self"), &status);
    ASSERT_TRUE(backend);
    const Status checked = backend->check();
    EXPECT_FALSE(checked.ok());
    EXPECT_TRUE(checked.message.contains(QStringLiteral("cannot write into /proc/self")))
        << checked.message.toStdString();
}

TEST(FileSystemBackend, ContainersAreTheFoldersBesideTheConfiguredOne)
{
    QTemporaryDir dir;
    for (const char* name : {"backups", "older", ".hidden"})
        QDir(dir.path()).mkdir(QString::fromLatin1(name));
    QFile(dir.filePath(QStringLiteral("a file"))).open(QIODevice::WriteOnly);
    Status status;
    auto backend = folderBackend(dir.filePath(QStringLiteral("backups/")), &status);
    QList<ObjectInfo> containers;
    ASSERT_TRUE(backend->listContainers(&containers).ok());
    QStringList names;
    for (const ObjectInfo& container : containers)
        names << container.name;
    EXPECT_EQ(names, QStringList({dir.filePath(QStringLiteral(".hidden/")),
                                  dir.filePath(QStringLiteral("backups/")),
                                  dir.filePath(QStringLiteral("older/"))}));
}
