#pragma once

#include <cstdint>
#include <string>

#include "SorrelFramework/Removal/RemovalPolicy.hpp"

namespace sorrel::test {

/// One tree of odd names, types, links, owners and modes, a selection in it, and a removal of each item of
/// the selection: all of it as the seed says. Answers what is wrong, "" if nothing is: only what was selected
/// may have changed, and only what is gone may count as removed.
std::string faultOfRandomRemoval(std::uint64_t seed, const RemovalPolicy& policy);

}  // namespace sorrel::test
