#pragma once

#include "CommandGroupBase.h"

namespace Orv::CLI {

class PlanGroup : public CommandGroupBase
{
    Q_OBJECT
public:
    explicit PlanGroup(QObject* parent = nullptr);
};

} // namespace Orv::CLI
