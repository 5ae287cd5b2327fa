#include "GroupFeedback.h"

namespace Orv::CLI {

FeedbackGroup::FeedbackGroup(QObject* parent)
    : CommandGroupBase(QStringLiteral("feedback"), QStringLiteral("feedback commands"), parent)
{
}

} // namespace Orv::CLI
