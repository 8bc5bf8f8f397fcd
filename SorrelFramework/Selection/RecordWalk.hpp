#pragma once

#include <functional>

#include "SorrelFramework/Model/Enumerations.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"

namespace sorrel {

/// Neither on nor off counts as mixed.
[[nodiscard]] constexpr bool isMixed(Integer state) noexcept {
  return state != NSControlStateValueOn && state != NSControlStateValueOff;
}

/// Sum of `ofLeaf` over the leaves at and below `record`, in the order of the arrays. `atParent`, if given,
/// runs for each record with children after all of them, with their sum. Trees may have any depth.
Integer sumOfLeaves(FileInformation& record, const std::function<Integer(FileInformation& leaf)>& ofLeaf,
                    const std::function<void(FileInformation& parent, Integer sum)>& atParent = {});

}  // namespace sorrel
