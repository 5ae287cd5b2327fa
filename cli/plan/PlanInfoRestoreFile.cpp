#include "PlanInfoRestoreFile.h"

namespace Orv::CLI {

using Orv::Info::Plan::Restore;

PlanInfoRestoreFile::PlanInfoRestoreFile(QSharedPointer<const Orv::Info::Plan::RestoreFile> plan)
    : PlanInfo(plan), m_restore(std::move(plan))
{
}

QString PlanInfoRestoreFile::summary() const
{
    const Restore& plan = *m_restore;
    const QDateTime pointInTime = plan.pointInTime();
    QString text = PlanInfo::summary();
    text += list(QStringLiteral("Restore items:"), m_restore->restoreItems());
    text += line(QStringLiteral("Restore type         : "),
                 Restore::RestoretTypeString(plan.restoreType()));
    text += line(QStringLiteral("PointInTime  : "),
                 pointInTime.isValid() ? pointInTime.toString(QStringLiteral("dd.MM.yyyy hh:mm"))
                                       : QStringLiteral("Not specified"));
    text += line(QStringLiteral("Restore to original location: "),
                 yesNo(m_restore->restoreToOriginalLocation()));
    text += line(QStringLiteral("Restore destination  : "), m_restore->destination());
    // Only whether a password is set: a sealed one counts as set too.
    text += plan.encryptionPasswordSecret().isEmpty()
                ? QStringLiteral("Encryption password  : Is not specified!\n")
                : QStringLiteral("Encryption password  : Specified.\n");
    text += line(QStringLiteral("Only new files       : "), yesNo(m_restore->onlyNewFiles()));
    text += line(QStringLiteral("Skip existing files  : "), yesNo(m_restore->skipExistingFiles()));
    text += line(QStringLiteral("Schedule             : "), scheduleText(plan.schedule()));
    text += line(QStringLiteral("Run missed plan      : "), yesNo(plan.runMuissedPlan()));
    text += line(QStringLiteral("Stop plan after      : "), stopAfterText(plan.schedule()));
    return text;
}

} // namespace Orv::CLI
