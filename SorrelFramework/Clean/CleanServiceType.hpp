#pragma once

#include "SorrelFramework/Model/Enumerations.hpp"

namespace sorrel {

/// Which repair of the tree follows a clean; see TreeRepair.hpp.
enum class CleanServiceType : Integer {
  Common = 0,
  LargeAndOldFile = 1,
  Duplicate = 2,
  Similar = 3,
  Uninstall = 4,
};

template <>
struct RawValues<CleanServiceType> {
  static constexpr Integer first = 0, last = 4;
};

}  // namespace sorrel
