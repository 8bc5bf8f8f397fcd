#pragma once

#include <cstddef>
#include <cstdint>

#include "SorrelFramework/Platform/Digest/MD5Constants.hpp"

namespace sorrel {

// The kernels for one kind of processor each; md5Kernels() determines where they may run. They exist on
// x86-64 only.

/// 16 lanes.
void runMD5AVX512(MD5States& states, const std::uint8_t* const* blocks, std::size_t count);
/// 8 lanes.
void runMD5AVX2(MD5States& states, const std::uint8_t* const* blocks, std::size_t count);

}  // namespace sorrel
