// A restore-once plan made by orvV2 against the real orvd: the bunch, its
// points and the paths come from what a backup run wrote, the plan starts as
// soon as it is saved, deletes itself after it succeeded, and the files come
// back bit for bit.

#include "AccountRuns.h"
#include "ServiceRawClient.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/V2/PlanCommands.h"
#include "orvInfo/Plan/BackupFile.h"
#include "orvInfo/Plan/PlanResult.h"
#include "orvInfo/PlanObject.h"
#include "support/Sandbox.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonArray>
#include <QRandomGenerator>
#include <QThread>
#include <gtest/gtest.h>
#include <optional>

using namespace OrvTest;
using namespace OrvTest::Accounts;
using Orv::Info::PlanObject;
using Orv::Info::Plan::PlanResult;
namespace Format = Orv::Common::Communication::Commands::Format;

namespace {

std::optional<PlanObject> planNamed(Sandbox& sandbox, const QString& name)
{
    ServiceRawClient client(sandbox.socketPath());
    const auto reply = client.call(QLatin1String(Format::Plan::GetList::Name));
    const QJsonArray rows = reply ? reply->value(QLatin1String(Format::Header::Data))
                                        .toObject()
                                        .value(QLatin1String(Format::Plan::GetList::Reply::Key))
                                        .toArray()
                                  : QJsonArray();
    for (const QJsonValue& value : rows)
        if (value[QLatin1String(Format::Plan::DataType::Info::Name)] == name)
            return PlanObject::fromRow(value.toObject());
    return std::nullopt;
}

// Each file under root, relative, with a digest of its bytes; folders end in "/".
QStringList contents(const QString& root)
{
    QStringList entries;
    QDirIterator it(root, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString relative = path.mid(root.size());
        if (it.fileInfo().isDir()) {
            entries.append(relative + QLatin1Char('/'));
            continue;
        }
        QFile file(path);
        const QByteArray data = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        entries.append(relative + QLatin1Char(' ') +
                       QCryptographicHash::hash(data, QCryptographicHash::Sha1).toHex());
    }
    entries.sort();
    return entries;
}

} // namespace

TEST(RestorePlanEndToEnd, RestoreOncePlanRunsVanishesAndRestoresEveryByte)
{
    Sandbox sandbox;
    ASSERT_TRUE(sandbox.startService());
    QDir().mkpath(sandbox.path(QStringLiteral("store")));
    expectRun(run(sandbox, "account add filesystem --name Desk -p desk -f",
                  {sandbox.path(QStringLiteral("store"))}),
              kSuccess);
    const QUuid account(record(sandbox, QStringLiteral("Desk")).value("ID").toString());
    ASSERT_FALSE(account.isNull());

    const QString source = sandbox.path(QStringLiteral("source"));
    QDir().mkpath(source + QStringLiteral("/docs/deeper"));
    QRandomGenerator random(11);
    for (int i = 0; i < 12; ++i) {
        QByteArray data(int(random.bounded(1, 400000)), Qt::Uninitialized);
        for (char& c : data)
            c = char(random.bounded(256));
        sandbox.writeFile(QStringLiteral("source/docs/%1file-%2.bin")
                              .arg(i % 2 ? QStringLiteral("deeper/") : QString())
                              .arg(i),
                          data);
    }

    Orv::Info::Plan::BackupFile backup;
    backup.setId(QUuid::createUuid());
    backup.setName(QStringLiteral("Docs"));
    backup.setStorage(account);
    backup.setAccountId(account);
    backup.setIsArchive(true);
    backup.setItems({source});
    backup.encryption().setEnabled(true);
    backup.encryption().setPassword(QStringLiteral("correct horse"));
    {
        ServiceRawClient client(sandbox.socketPath());
        const auto saved = client.call(
            QLatin1String(Format::Plan::CommonEdit::Name),
            {{QLatin1String(Format::Plan::CommonEdit::Request::PlanXml),
              backup.toXml(Orv::Info::Plan::Base::SecretForm::Plain)},
             {QLatin1String(Format::Plan::CommonEdit::Request::ID), backup.id().toString()}});
        ASSERT_TRUE(saved);
        const auto started =
            client.callTyped(Orv::Common::Communication::V2::Plan::StartPlan::CommandId,
                             {{"planId", backup.id().toString(QUuid::WithoutBraces)}});
        ASSERT_TRUE(started);
    }
    const QDeadlineTimer backupDeadline(60000);
    std::optional<PlanObject> ran;
    do {
        QThread::msleep(50);
        ran = planNamed(sandbox, QStringLiteral("Docs"));
    } while (
        ran &&
        (ran->status().isRunning() || ran->lastRunStatus() == PlanResult(PlanResult::NeverRun)) &&
        !backupDeadline.hasExpired());
    ASSERT_TRUE(ran);
    ASSERT_EQ(ran->lastRunStatus(), PlanResult(PlanResult::Success))
        << ran->lastRunMessage().toStdString();

    // The bunch by its plan's name; a path the point does not hold is told
    // and left out.
    const QString restored = sandbox.path(QStringLiteral("restored"));
    const QString missing = source + QStringLiteral("/nope");
    const RunResult created =
        run(sandbox,
            "plan create_restore --account Desk --bunch Docs --latest-version --restore-once true "
            "--confirm --name Once --decryption-password",
            {QStringLiteral("correct horse"), QStringLiteral("--restore-location"), restored,
             QStringLiteral("--path"), source, QStringLiteral("--path"), missing});
    expectRun(created, missing.toUtf8() + " - nothing to restore.\n\nSuccess\n" + kSuccess);

    const QDeadlineTimer restoreDeadline(60000);
    std::optional<PlanObject> once = planNamed(sandbox, QStringLiteral("Once"));
    while (once && !restoreDeadline.hasExpired()) {
        // A failed run keeps the plan: no need to wait for it to vanish.
        if (!once->status().isRunning() &&
            once->lastRunStatus() != PlanResult(PlanResult::NeverRun))
            break;
        QThread::msleep(50);
        once = planNamed(sandbox, QStringLiteral("Once"));
    }
    ASSERT_FALSE(once) << "the plan is still listed: " << once->lastRunMessage().toStdString();
    EXPECT_EQ(contents(restored + source).join('\n').toStdString(),
              contents(source).join('\n').toStdString());
}
