#pragma once

#include "CommandBase.h"

namespace Orv::CLI {

class SoftwareUpdater;

// "check_update": tells whether a newer build is published and, with the
// administrator's consent (or --update), has the service download it while a
// progress bar follows. Runs to its end inside process(); every outcome is
// printed and the run ends with status 0.
class CommandCheckUpdate : public CommandBase
{
    Q_OBJECT
public:
    explicit CommandCheckUpdate(QObject* parent = nullptr);
    int process(const QStringList& words) override;

    // "[####   ] 37 %\r": 50 cells, halves rounded up.
    static QString progressLine(int percent);

private:
    void check();
    bool consent() const;
    void download(SoftwareUpdater& updater);

    QCommandLineOption m_updateOption;
};

} // namespace Orv::CLI
