#pragma once

#include "CommandGroupBase.h"

namespace Orv::CLI {

// Root of the client bound to the managed backup service.
class TarnCommandGroup : public CommandGroupBase
{
    Q_OBJECT
public:
    explicit TarnCommandGroup(QObject* parent = nullptr);
};

} // namespace Orv::CLI
