#pragma once

#include "CommandGroupBase.h"

namespace Orv::CLI {

class ConfigGroup : public CommandGroupBase
{
    Q_OBJECT
public:
    explicit ConfigGroup(QObject* parent = nullptr);
};

} // namespace Orv::CLI
