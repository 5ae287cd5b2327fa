#pragma once

namespace Orv::CLI {

class CommandGroupBase;

// The items that both variants' roots hold; each root adds its own beside them.
void addCommonRootItems(CommandGroupBase* root);

} // namespace Orv::CLI
