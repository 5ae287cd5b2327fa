#include "CommandStorageDeleteBackupData.h"

#include "Console.h"

namespace Orv::CLI {

namespace Repository = Orv::Common::Communication::V2::Repository;

namespace {

const QString kWillBeDeleted = QStringLiteral(" - WILL BE DELETED\n");

} // namespace

CommandStorageDeleteBackupData::CommandStorageDeleteBackupData(QObject* parent)
    : CommandStorage(QStringLiteral("delete"), QStringLiteral("storage delete backup data"), false,
                     parent),
      m_confirmOption(QStringList{QStringLiteral("c"), QStringLiteral("confirm")},
                      QStringLiteral("Confirm remove bunch or generation"))
{
    addOption(m_confirmOption, true);
}

bool CommandStorageDeleteBackupData::checkOwnOptions()
{
    return checkMandatoryParams(m_bunchOption, m_bunchIdOption);
}

void CommandStorageDeleteBackupData::accountFound()
{
    fetchBunches([this](const QList<Bunch>& bunches) {
        const Bunch bunch = selectedBunch(bunches);
        print(QStringLiteral("Storage: ") + accountName() + QStringLiteral("\n"));
        print(QStringLiteral("\tBunch: ") + bunch.displayName());
        if (!isSet(m_generationOption)) {
            deleteBunch(bunch);
            return;
        }
        print(QStringLiteral("\n"));
        fetchGenerations(bunch, [this, bunch](const QList<Generation>& generations) {
            deleteGeneration(bunch, generations);
        });
    });
}

void CommandStorageDeleteBackupData::deleteBunch(const Bunch& bunch)
{
    print(kWillBeDeleted);
    remove(Repository::RemoveDataBunch::CommandId, newRequest(&bunch));
}

void CommandStorageDeleteBackupData::deleteGeneration(const Bunch& bunch,
                                                      const QList<Generation>& generations)
{
    if (generations.isEmpty()) {
        print(QStringLiteral("\tBunch does not contain generations.\n"));
        throw QStringLiteral("Error: specified generation doesn't exist");
    }
    const Generation selected = selectedGeneration(generations);
    fetchRestorePoints(
        bunch, selected, [this, bunch, selected, generations](const QList<RestorePoint>& points) {
            printGenerations(generations, selected, points);
            remove(Repository::RemoveDataGeneration::CommandId, newRequest(&bunch, &selected));
        });
}

void CommandStorageDeleteBackupData::printGenerations(const QList<Generation>& generations,
                                                      const Generation& selected,
                                                      const QList<RestorePoint>& points) const
{
    for (const Generation& generation : generations) {
        print(QStringLiteral("\t\tGeneration: %1 - %2")
                  .arg(timeText(generation.firstRestorePoint()),
                       timeText(generation.lastRestorePoint())));
        if (generation.id() != selected.id()) {
            print(QStringLiteral("\n"));
            continue;
        }
        print(kWillBeDeleted);
        for (const RestorePoint& point : points) {
            const bool incremental = point.backupType() == RestorePoint::BackupType::Incremental;
            print(QStringLiteral("\t\t\t%1 %2")
                      .arg(incremental ? QStringLiteral("(Incremental):")
                                       : QStringLiteral("       (Full):"),
                           timeText(point.startDate())) +
                  kWillBeDeleted);
        }
    }
}

void CommandStorageDeleteBackupData::remove(const QUuid& commandId,
                                            const QSharedPointer<Request>& request)
{
    if (!isSet(m_confirmOption))
        throw QStringLiteral(
            "Please confirm remove backup data (use parameter --confirm or -c).\n");
    sendAction(commandId, request, [this] {
        print(QStringLiteral("Success.\n"));
        emit finished(DontShow);
    });
}

} // namespace Orv::CLI
