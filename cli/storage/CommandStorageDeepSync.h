#pragma once

#include "CommandStorage.h"

namespace Orv::CLI {

// "storage deep-sync": rebuilds the local data of one generation from the
// storage, when the generation needs it. An encrypted generation needs its
// password; without one the command shows the password hint and asks nothing.
class CommandStorageDeepSync : public CommandStorage
{
    Q_OBJECT
public:
    explicit CommandStorageDeepSync(QObject* parent = nullptr);

protected:
    bool checkOwnOptions() override;
    void accountFound() override;

private:
    void synchronize(const Bunch& bunch, const Generation& generation);

    QCommandLineOption m_passwordOption;
};

} // namespace Orv::CLI
