#pragma once

#include "orvInfo/PlanObject.h"

#include <QDateTime>
#include <QSharedPointer>
#include <QString>

namespace Orv::CLI {

// A row of the service's plan list as the command line prints it: the short
// form (name, id, kind, state and the last run's outcome) for "plan list",
// and the detailed form with the last run's figures for "plan details". Each
// field is one "Label: value" line.
class PlanObject
{
public:
    explicit PlanObject(QSharedPointer<Orv::Info::PlanObject> plan);

    // The detailed form includes the progress steps of the current or last run.
    void setShowProgress(bool show) { m_showProgress = show; }

    QString shortInfo(int indent = 0) const;
    QString detailedInfo() const;
    // Every line starts with `indent` blanks.
    QString toString(int indent, bool detailed) const;

    // 01:02:03 (hours, minutes, seconds); hours go beyond 24.
    static QString formatDuration(qint64 milliseconds);
    // "512 bytes", or "1.50 MB (1572864 bytes)" with 1024-based units.
    static QString formatSize(qint64 bytes);
    // Local time, "dd.MM.yyyy hh:mm:ss".
    static QString formatTime(const QDateTime& time);

protected:
    void initShortInfo(QString& text, int indent) const;
    void initDetailInfo(QString& text, int indent = 0) const;

private:
    QSharedPointer<Orv::Info::PlanObject> m_plan;
    bool m_showProgress = false;
};

} // namespace Orv::CLI
