#pragma once

#include <atomic>

#include "SorrelFramework/Units/ScanStatus.hpp"

namespace sorrel {

/// The state that lets a stop of the duplicate scan reach a file hash in mid-file: a hash tests it before
/// each chunk.
class StreamFileHashUnit {
 public:
  static StreamFileHashUnit& shard();

  /// Raw ScanState; `suspend` breaks a hash at its next chunk.
  std::atomic<int> scanState{static_cast<int>(ScanState::start)};

 private:
  StreamFileHashUnit() = default;
};

}  // namespace sorrel
