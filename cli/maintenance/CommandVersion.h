#pragma once

#include "CommandBase.h"

namespace Orv::CLI {

// "version": prints the build's version. Runs to its end inside process().
class CommandVersion : public CommandBase
{
    Q_OBJECT
public:
    explicit CommandVersion(QObject* parent = nullptr);
    int process(const QStringList& words) override;
};

} // namespace Orv::CLI
