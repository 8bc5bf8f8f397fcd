#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "SorrelFramework/Platform/Digest/MD5Constants.hpp"

namespace sorrel {

/// An implementation of MD5's block function for several messages at once.
struct MD5Kernel {
  std::string_view name;
  std::size_t lanes;
  /// The smallest number of busy lanes with which it is faster than one message after the other.
  std::size_t leastLanes;
  /// True if this processor, and the system on it, can run it.
  bool (*isSupported)();
  /// Feeds `count` whole blocks from blocks[l] to each lane l below `lanes`.
  void (*run)(MD5States& states, const std::uint8_t* const* blocks, std::size_t count);
};

/// All kernels of this build, the fastest first; the last one has a single lane and runs everywhere.
std::span<const MD5Kernel> md5Kernels();
/// The first one that this processor supports.
const MD5Kernel& bestMD5Kernel();

/// The block function itself, for the message in one lane.
void runMD5Lane(MD5States& states, std::size_t lane, const std::uint8_t* blocks, std::size_t count);

}  // namespace sorrel
