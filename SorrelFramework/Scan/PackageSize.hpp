#pragma once

#include <cstdint>
#include <string_view>

namespace sorrel {

/// Bytes in the output of mdls(1): the number in the first, in text order, of the lines with "kMDItemFSSize"
/// or "kMDItemPhysicalSize", so that the logical size wins if both are there. 0 without such a line or a
/// digit in it; a number beyond 64 bits gives the largest one.
std::int64_t packageSizeInOutput(std::string_view output);

}  // namespace sorrel
