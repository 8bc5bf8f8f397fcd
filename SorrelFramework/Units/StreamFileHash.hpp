#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <string>

#include "SorrelFramework/Platform/Files/FileReadStream.hpp"
#include "SorrelFramework/Units/ScanStatus.hpp"

namespace sorrel {

/// The MD5 of whole files, for the duplicate scan, and the state by which a stop of that scan interrupts a
/// hash in the middle of a file.
class StreamFileHashUnit {
 public:
  static StreamFileHashUnit& shard();

  /// 32 lower-case hexadecimal digits for the content of a regular file, read to its end in chunks of 16384
  /// bytes. Nothing if it cannot be read to its end, for an item that is not a regular file, and as soon as
  /// the test of scanState before a chunk finds `suspend`. A link in the last component is not followed: a
  /// hash stands for the bytes at this path itself, so that a folder of links is not a copy of the folder
  /// they lead to. Any thread, many at once.
  [[nodiscard]] std::optional<std::string> hashFile(const std::string& path) const;

  /// The same; `isStopped` replaces the test of scanState.
  [[nodiscard]] static std::optional<std::string> hashFile(const std::string& path,
                                                           const std::function<bool()>& isStopped);
  /// The same for a file that is open. Nothing with errno if a read failed; with 0 in it for a stop.
  [[nodiscard]] static std::optional<std::string> hashStream(FileReadStream& stream,
                                                             const std::function<bool()>& isStopped);

  /// Raw ScanState; `suspend` stops a hash at its next chunk.
  std::atomic<int> scanState{static_cast<int>(ScanState::start)};
  [[nodiscard]] bool isSuspended() const { return ScanStatusTable::isSuspended(scanState); }

 private:
  StreamFileHashUnit() = default;
};

}  // namespace sorrel
