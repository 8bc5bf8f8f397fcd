#pragma once

#include <cstddef>
#include <cstdint>

#include "SorrelFramework/Platform/Digest/MD5Constants.hpp"

namespace sorrel {

// The kernels for one kind of processor each; md5Kernels() says where they may run. There is none of them on
// other machines than x86-64.

/// 16 lanes.
void runMD5AVX512(MD5States& states, const std::uint8_t* const* blocks, std::size_t count);
/// 8 lanes.
void runMD5AVX2(MD5States& states, const std::uint8_t* const* blocks, std::size_t count);

}  // namespace sorrel
