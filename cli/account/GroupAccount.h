#pragma once

#include "CommandGroupBase.h"

namespace Orv::CLI {

class AccountGroup : public CommandGroupBase
{
    Q_OBJECT
public:
    explicit AccountGroup(QObject* parent = nullptr);
};

} // namespace Orv::CLI
