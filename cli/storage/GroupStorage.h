#pragma once

#include "CommandGroupBase.h"

namespace Orv::CLI {

class StorageGroup : public CommandGroupBase
{
    Q_OBJECT
public:
    explicit StorageGroup(QObject* parent = nullptr);
};

} // namespace Orv::CLI
