#pragma once

namespace Orv::CLI {

class CommandGroupBase;

// The items that both variants' roots hold; each root adds its own beside them.
// Only the standalone variant offers every account type.
void addCommonRootItems(CommandGroupBase* root, bool allAccountTypes);

} // namespace Orv::CLI
