#pragma once

#include "CommandGroupBase.h"

namespace Orv::CLI {

// Root of the self-managed client: the local user owns all configuration.
class StandaloneCommandGroup : public CommandGroupBase
{
    Q_OBJECT
public:
    explicit StandaloneCommandGroup(QObject* parent = nullptr);
};

} // namespace Orv::CLI
