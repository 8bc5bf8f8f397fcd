#pragma once

#include "Helper/HelperCall.hpp"
#include "Helper/HelperLog.hpp"
#include "Helper/Supervisor.hpp"

namespace sorrel::helper {

/// Writes down how the work on an event ended: what failed and why, what was removed if `namesRemoved`, and
/// the sums. `outcome` is what the caller gets.
void logEnding(HelperLog& log, const HelperCall& call, const Supervisor::Ending& ending,
               const EventOutcome& outcome, bool namesRemoved);

}  // namespace sorrel::helper
