#include "CommandStorageList.h"

#include "Console.h"

namespace Orv::CLI {

CommandStorageList::CommandStorageList(QObject* parent)
    : CommandStorage(QStringLiteral("list"), QStringLiteral("storage list"), true, parent)
{
}

void CommandStorageList::accountFound()
{
    print(QStringLiteral("Storage: ") + accountName() + QStringLiteral("\n"));
    fetchBunches([this](const QList<Bunch>& bunches) {
        if (bunches.isEmpty()) {
            print(QStringLiteral("\tStorage does not contain bunches\n"));
            emit finished(DontShow);
            return;
        }
        m_bunches.clear();
        for (const Bunch& bunch : bunches)
            if (isSelectedBunch(bunch))
                m_bunches.append(bunch);
        if (m_bunches.isEmpty())
            throw QStringLiteral("Error: specified bunch doesn't exist");
        listNextBunch();
    });
}

void CommandStorageList::listNextBunch()
{
    if (m_bunches.isEmpty()) {
        finish();
        return;
    }
    m_bunch = m_bunches.takeFirst();
    print(QStringLiteral("\tBunch: %1 %2\n").arg(m_bunch.displayName(), m_bunch.id()));
    fetchGenerations(m_bunch, [this](const QList<Generation>& generations) {
        if (generations.isEmpty())
            print(QStringLiteral("\tBunch does not contain generations.\n"));
        m_generations.clear();
        for (const Generation& generation : generations)
            if (isSelectedGeneration(generation))
                m_generations.append(generation);
        listNextGeneration();
    });
}

void CommandStorageList::listNextGeneration()
{
    if (m_generations.isEmpty()) {
        listNextBunch();
        return;
    }
    m_generation = m_generations.takeFirst();
    m_generationMet = true;
    print(generationLine(m_generation));
    if (!showsRestorePoints()) {
        listNextGeneration();
        return;
    }
    fetchRestorePoints(m_bunch, m_generation, [this](const QList<RestorePoint>& points) {
        m_points.clear();
        for (const RestorePoint& point : points)
            if (isSet(m_allOption) || isSelectedRestorePoint(point))
                m_points.append(point);
        listNextRestorePoint();
    });
}

void CommandStorageList::listNextRestorePoint()
{
    if (m_points.isEmpty()) {
        listNextGeneration();
        return;
    }
    m_point = m_points.takeFirst();
    print(restorePointLine(m_point));
    if (!isSelectedRestorePoint(m_point)) {
        listNextRestorePoint();
        return;
    }
    m_restorePointMet = true;
    if (!isSet(m_pathOption)) {
        listNextRestorePoint();
        return;
    }
    m_shown = 0;
    listContent(m_offset);
}

void CommandStorageList::listContent(int offset)
{
    const int wanted = m_limit > 0 ? m_limit - m_shown : 0;
    fetchContent(
        m_bunch, m_generation, m_point, wanted, offset,
        [this, offset, wanted](const QList<ContentObject>& page, const ListResponse& response) {
            const int count = wanted > 0 ? qMin(wanted, page.size()) : page.size();
            for (int i = 0; i < count; ++i)
                print(QStringLiteral("\t\t\t\t%1 - %2\n")
                          .arg(page.at(i).typeName(), page.at(i).path()));
            m_shown += count;
            // A page that brought nothing, or an offset that did not
            // move on, would ask for the same page for ever.
            const bool more = response.hasMore() && count > 0 && response.offset() > offset &&
                              (m_limit == 0 || m_shown < m_limit);
            if (more)
                listContent(response.offset());
            else
                listNextRestorePoint();
        });
}

void CommandStorageList::finish()
{
    if (isSet(m_generationOption) && !m_generationMet)
        throw QStringLiteral("Error: specified generation doesn't exist");
    if (m_restoreTime.isValid() && !m_restorePointMet)
        throw QStringLiteral("Error: specified restore point doesn't exist");
    emit finished(DontShow);
}

QString CommandStorageList::generationLine(const Generation& generation) const
{
    QString line = QStringLiteral("\t\tGeneration: %1 - %2 %3")
                       .arg(timeText(generation.firstRestorePoint()),
                            timeText(generation.lastRestorePoint()), generation.id());
    if (generation.warningCount() > 0)
        line += QStringLiteral(" - Warnings");
    if (generation.errorCount() > 0)
        line += QStringLiteral(" - Errors");
    if (generation.deepSync())
        line += QStringLiteral(" - Need deep sync");
    if (generation.isEncrypted())
        line += QStringLiteral(" - Encrypted");
    if (isSet(m_hintOption))
        line += QStringLiteral(" - Hint : ") + decodedHint(generation);
    return line + QStringLiteral("\n");
}

QString CommandStorageList::restorePointLine(const RestorePoint& point)
{
    QString line = QStringLiteral("\t\t\tRestore point: ");
    line += point.backupType() == RestorePoint::BackupType::Incremental
                ? QStringLiteral("(Incremental) ")
                : QStringLiteral("(Full) ");
    line += timeText(point.startDate());
    if (point.status() == RestorePoint::Status::Failure)
        line += QStringLiteral(" - Fail");
    else if (point.status() == RestorePoint::Status::Warning)
        line += QStringLiteral(" - Warning");
    if (point.deepSync())
        line += QStringLiteral(" - Need deep sync");
    if (point.isEncrypted())
        line += QStringLiteral(" - Encrypted");
    return line + QStringLiteral("\n");
}

bool CommandStorageList::showsRestorePoints() const
{
    return isSet(m_allOption) || m_restoreTime.isValid();
}

} // namespace Orv::CLI
