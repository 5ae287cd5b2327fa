#pragma once

#include "kelCloud/Types.h"
#include "orvInfo/Plan/Base.h"

#include <QSharedPointer>
#include <QString>
#include <QStringList>

namespace Orv::CLI {

// The settings of one plan as "plan details" summarises them, one
// "Label : value" line each. The labels are padded so that the colons of a
// block line up. No password is ever shown, only whether one is set.
class PlanInfo
{
public:
    explicit PlanInfo(QSharedPointer<const Orv::Info::Plan::Base> plan);
    virtual ~PlanInfo() = default;

    // A PlanInfoBackupFile or a PlanInfoRestoreFile for plans of those
    // classes; the common part alone for any other plan; null for none.
    static QSharedPointer<PlanInfo> create(const QSharedPointer<Orv::Info::Plan::Base>& plan);

    // The storage account the plan uses, as the account list names it. The
    // account's type decides which storage-specific lines a backup plan shows.
    void setDestination(const QString& name, Kel::Cloud::Type type);

    virtual QString summary() const;

    // "No schedule", "Once at 01.02.2026 10:00", "Daily at 22:00",
    // "Weekly on Monday, Friday every 30 min from 08:00 to 18:00", ...
    static QString scheduleText(const Orv::Info::Plan::Schedule& schedule);
    // "Off" or "2 h 30 min".
    static QString stopAfterText(const Orv::Info::Plan::Schedule& schedule);

protected:
    static QString line(const QString& label, const QString& value);
    // The label on its own line, then one item a line.
    static QString list(const QString& label, const QStringList& items);
    static QString yesNo(bool value);

    Kel::Cloud::Type destinationType() const { return m_destinationType; }

private:
    QSharedPointer<const Orv::Info::Plan::Base> m_plan;
    QString m_destinationName;
    Kel::Cloud::Type m_destinationType = Kel::Cloud::Type::Unknown;
};

} // namespace Orv::CLI
