#pragma once

#include "CommandBase.h"

namespace Orv::CLI {

// "feedback send-log": writes the diagnostic archive and sends it to the
// support service, optionally keeping a copy in the current folder.
class CommandSendLog : public CommandBase
{
    Q_OBJECT
public:
    explicit CommandSendLog(QObject* parent = nullptr);
    int process(const QStringList& words) override;

private:
    QCommandLineOption m_userOption;
    QCommandLineOption m_emailOption;
    QCommandLineOption m_messageOption;
    QCommandLineOption m_localOption;
};

} // namespace Orv::CLI
