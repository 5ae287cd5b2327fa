#pragma once

#include "orvInfo/PlanObject.h"

#include <QString>

namespace Orv::CLI {

namespace CommonHelpers {

// Reads a yes/no word in any letter case ("yes", "true", "no", "false"). An
// empty text gives the default silently; anything else prints why and gives
// the default with *ok set to false. *ok is never set to true here.
bool GetBoolFromString(const QString& text, bool defaultValue, bool* ok = nullptr,
                       const QString& optionName = QString());

// Finds a plan by its id or its exact name through the service. Blocks on a
// local event loop until the service answers. Returns a null plan
// (isValid() false) when nothing matches; throws QString when the exchange
// fails.
Orv::Info::PlanObject searchPlan(const QString& idOrName);

} // namespace CommonHelpers

// The prefix new backups go under by default: this machine's name, or in the
// managed variant the prefix that the managed service assigned.
QString defaultPrefix();

} // namespace Orv::CLI
