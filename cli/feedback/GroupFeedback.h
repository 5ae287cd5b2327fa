#pragma once

#include "CommandGroupBase.h"

namespace Orv::CLI {

class FeedbackGroup : public CommandGroupBase
{
    Q_OBJECT
public:
    explicit FeedbackGroup(QObject* parent = nullptr);
};

} // namespace Orv::CLI
