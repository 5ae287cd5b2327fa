#include "kelCloud/Config.h"
#include "kelCloud/Operation.h"
#include "support/QtPrinters.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QJsonObject>
#include <QPointer>
#include <QTemporaryDir>
#include <QThread>
#include <QThreadPool>
#include <QTimer>
#include <gtest/gtest.h>

using Kel::Cloud::Operation;
using Kel::Cloud::OperationManager;
namespace Config = Kel::Cloud::Config;

namespace {

QVariantMap folderConfig(const QString& path, const QString& type = QStringLiteral("FileSystem"))
{
    return {{QLatin1String(Config::Type), type}, {QLatin1String(Config::Path), path}};
}

// Waits on the event loop for the operation; counts how often it finished
// and on which thread.
struct Finish
{
    int count = 0;
    QThread* thread = nullptr;
};

Finish waitFor(Operation* operation)
{
    Finish finish;
    QEventLoop loop;
    QObject::connect(operation, &Operation::finished, [&] {
        ++finish.count;
        finish.thread = QThread::currentThread();
        loop.quit();
    });
    QTimer::singleShot(10000, &loop, &QEventLoop::quit);
    loop.exec();
    QCoreApplication::processEvents();
    return finish;
}

} // namespace

TEST(CloudOperation, FinishesOnceOnTheCreatingThreadWithTheResult)
{
    QTemporaryDir dir;
    QDir(dir.path()).mkdir(QStringLiteral("backups"));
    QDir(dir.path()).mkdir(QStringLiteral("other"));
    const QString folder = dir.filePath(QStringLiteral("backups"));

    std::unique_ptr<Operation> check(OperationManager::checkConfig(folderConfig(folder)));
    EXPECT_FALSE(check->isFinished());
    const Finish finish = waitFor(check.get());
    EXPECT_EQ(finish.count, 1);
    EXPECT_EQ(finish.thread, QThread::currentThread());
    EXPECT_TRUE(check->isFinished());
    EXPECT_EQ(check->error(), Operation::Error::None) << check->errorString().toStdString();

    std::unique_ptr<Operation> list(OperationManager::listContainers(folderConfig(folder)));
    waitFor(list.get());
    ASSERT_EQ(list->error(), Operation::Error::None);
    QStringList names;
    for (const QJsonValue& value : list->result())
        names << value.toObject().value(QStringLiteral("Name")).toString();
    EXPECT_EQ(names, QStringList({folder, dir.filePath(QStringLiteral("other"))}));
}

TEST(CloudOperation, FailuresCarryTheirKindAndReason)
{
    QTemporaryDir dir;
    const QString missing = dir.filePath(QStringLiteral("missing"));
    struct Case
    {
        QVariantMap config;
        Operation::Error error;
        const char* words;
    };
    for (const Case& c :
         {Case{folderConfig(missing), Operation::Error::ContainerNotFound, "does not exist"},
          Case{folderConfig(QStringLiteral("relative/path")),
               Operation::Error::InvalidConfiguration, "absolute"},
          Case{folderConfig(dir.path(), QStringLiteral("NoSuchType")),
               Operation::Error::InvalidConfiguration, "unknown account type"},
          Case{folderConfig(dir.path(), QStringLiteral("OracleCloud")),
               Operation::Error::NotSupported, "OracleCloud"}}) {
        std::unique_ptr<Operation> operation(OperationManager::checkConfig(c.config));
        waitFor(operation.get());
        EXPECT_EQ(operation->error(), c.error) << c.words;
        EXPECT_TRUE(operation->errorString().contains(QLatin1String(c.words)))
            << operation->errorString().toStdString();
    }
}

TEST(CloudOperation, MayBeDeletedEarlyOrDeleteItself)
{
    QTemporaryDir dir;
    // Deleted while the work runs: the result goes nowhere.
    for (int i = 0; i < 20; ++i)
        delete OperationManager::checkConfig(folderConfig(dir.path()));
    QThreadPool::globalInstance()->waitForDone();
    QCoreApplication::processEvents();

    QPointer<Operation> operation = OperationManager::checkConfig(folderConfig(dir.path()));
    operation->setAutoDelete(true);
    EXPECT_EQ(waitFor(operation.data()).count, 1);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(operation.isNull());
}
