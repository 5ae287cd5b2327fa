#pragma once

#include "CommandBase.h"

namespace Orv::CLI {

// "feedback save-log": writes the diagnostic archive into a local folder.
class CommandSaveLog : public CommandBase
{
    Q_OBJECT
public:
    explicit CommandSaveLog(QObject* parent = nullptr);
    int process(const QStringList& words) override;

private:
    QCommandLineOption m_pathOption;
    QVariant m_path;
};

} // namespace Orv::CLI
