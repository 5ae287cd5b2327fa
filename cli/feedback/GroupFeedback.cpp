#include "GroupFeedback.h"

#include "CommandSaveLog.h"
#include "CommandSendLog.h"

namespace Orv::CLI {

FeedbackGroup::FeedbackGroup(QObject* parent)
    : CommandGroupBase(QStringLiteral("feedback"), QStringLiteral("feedback commands"), parent)
{
    addSubItem(QSharedPointer<CommandSaveLog>::create());
    addSubItem(QSharedPointer<CommandSendLog>::create());
}

} // namespace Orv::CLI
