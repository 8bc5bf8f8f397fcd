#pragma once

#include <cstdint>
#include <string>

#include "SorrelFramework/Removal/RemovalPolicy.hpp"

namespace sorrel::test {

/// One tree of unusual names, types, links, owners and modes, a selection in it, and a removal of each item
/// of the selection, all determined by the seed. Returns the fault, "" if there is none: only selected items
/// may have changed, and only items that are gone may count as removed.
std::string faultOfRandomRemoval(std::uint64_t seed, const RemovalPolicy& policy);

}  // namespace sorrel::test
