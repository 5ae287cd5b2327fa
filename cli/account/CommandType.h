#pragma once

namespace Orv::CLI {

// Whether an account command adds a new account or edits an existing one;
// it selects the options and the flow of every account type's command.
enum class CommandType
{
    Add = 0,
    Edit = 1
};

} // namespace Orv::CLI
