#pragma once

#include "CommandStorage.h"

namespace Orv::CLI {

// "storage delete": removes a whole bunch, or one generation of it, from the
// storage. What would go is always shown first; nothing is removed without
// the confirmation switch.
class CommandStorageDeleteBackupData : public CommandStorage
{
    Q_OBJECT
public:
    explicit CommandStorageDeleteBackupData(QObject* parent = nullptr);

protected:
    bool checkOwnOptions() override;
    void accountFound() override;

private:
    void deleteBunch(const Bunch& bunch);
    void deleteGeneration(const Bunch& bunch, const QList<Generation>& generations);
    void printGenerations(const QList<Generation>& generations, const Generation& selected,
                          const QList<RestorePoint>& points) const;
    // Sends the removal when confirmed.
    void remove(const QUuid& commandId, const QSharedPointer<Request>& request);

    QCommandLineOption m_confirmOption;
};

} // namespace Orv::CLI
