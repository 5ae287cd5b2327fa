#include "PlanObject.h"

#include <iterator>

namespace Orv::CLI {

namespace {

QString line(int indent, const QString& label, const QString& value)
{
    return QString(indent, QLatin1Char(' ')) + label + value + QLatin1Char('\n');
}

} // namespace

PlanObject::PlanObject(QSharedPointer<Orv::Info::PlanObject> plan) : m_plan(std::move(plan)) {}

QString PlanObject::shortInfo(int indent) const
{
    return toString(indent, false);
}

QString PlanObject::detailedInfo() const
{
    return toString(0, true);
}

QString PlanObject::toString(int indent, bool detailed) const
{
    QString text;
    initShortInfo(text, indent);
    if (detailed)
        initDetailInfo(text, indent);
    return text;
}

void PlanObject::initShortInfo(QString& text, int indent) const
{
    const QString type =
        m_plan->typeName().isEmpty() ? QStringLiteral("Unknown") : m_plan->typeName();
    const QDateTime lastRun = m_plan->lastRunTime();
    text += line(indent, QStringLiteral("Display name: "), m_plan->displayName());
    text += line(indent, QStringLiteral("Id: "), m_plan->id().toString());
    text += line(indent, QStringLiteral("Type: "), type);
    text += line(indent, QStringLiteral("Status: "), m_plan->status().toString());
    text +=
        line(indent, QStringLiteral("Last run status: "), m_plan->lastRunStatus().displayName());
    text += line(indent, QStringLiteral("Last run time: "),
                 lastRun.isValid() ? formatTime(lastRun) : QStringLiteral("Plan never run"));
}

void PlanObject::initDetailInfo(QString& text, int indent) const
{
    text += line(indent, QStringLiteral("Last duration: "), formatDuration(m_plan->lastDuration()));
    text +=
        line(indent, QStringLiteral("Last file count: "), QString::number(m_plan->lastFileCount()));
    text += line(indent, QStringLiteral("Last file size: "), formatSize(m_plan->lastFileSize()));
    text += line(indent, QStringLiteral("Last upload count: "),
                 QString::number(m_plan->lastUploadedCount()));
    text += line(indent, QStringLiteral("Last failed count: "),
                 QString::number(m_plan->lastFailedCount()));
    text += line(indent, QStringLiteral("Last run message: "), m_plan->lastRunMessage());
    if (m_showProgress) {
        // One step a line; the steps after the first line up under it.
        const QString steps = m_plan->lastProgressSteps().trimmed();
        const QString continuation = QLatin1Char('\n') + QString(indent + 2, QLatin1Char(' '));
        text += line(indent, QStringLiteral("Progress steps: "),
                     steps.isEmpty() ? QStringLiteral("None")
                                     : QString(steps).replace(QLatin1Char('\n'), continuation));
    }
    const QString schedule = m_plan->schedule();
    text += line(indent, QStringLiteral("Schedule: "),
                 schedule.isEmpty() ? QStringLiteral("No schedule") : schedule);
}

QString PlanObject::formatDuration(qint64 milliseconds)
{
    const qint64 seconds = qMax<qint64>(milliseconds, 0) / 1000;
    return QStringLiteral("%1:%2:%3")
        .arg(seconds / 3600, 2, 10, QLatin1Char('0'))
        .arg(seconds / 60 % 60, 2, 10, QLatin1Char('0'))
        .arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

QString PlanObject::formatSize(qint64 bytes)
{
    if (bytes == 1)
        return QStringLiteral("1 byte");
    if (bytes < 1024)
        return QStringLiteral("%1 bytes").arg(bytes);
    static const char* const units[] = {"KB", "MB", "GB", "TB", "PB", "EB"};
    double value = double(bytes) / 1024;
    int unit = 0;
    while (value >= 1024 && unit + 1 < int(std::size(units))) {
        value /= 1024;
        ++unit;
    }
    return QStringLiteral("%1 %2 (%3 bytes)")
        .arg(value, 0, 'f', 2)
        .arg(QLatin1String(units[unit]))
        .arg(bytes);
}

QString PlanObject::formatTime(const QDateTime& time)
{
    return time.toLocalTime().toString(QStringLiteral("dd.MM.yyyy hh:mm:ss"));
}

} // namespace Orv::CLI
