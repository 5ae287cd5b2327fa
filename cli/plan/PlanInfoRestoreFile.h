#pragma once

#include "PlanInfo.h"
#include "orvInfo/Plan/RestoreFile.h"

namespace Orv::CLI {

// The summary of a file restore plan: what is restored, from when, to where
// and how existing files are treated, and its schedule.
class PlanInfoRestoreFile : public PlanInfo
{
public:
    explicit PlanInfoRestoreFile(QSharedPointer<const Orv::Info::Plan::RestoreFile> plan);

    QString summary() const override;

private:
    QSharedPointer<const Orv::Info::Plan::RestoreFile> m_restore;
};

} // namespace Orv::CLI
