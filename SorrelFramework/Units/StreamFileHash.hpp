#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <string>

#include "SorrelFramework/Platform/Files/FileReadStream.hpp"
#include "SorrelFramework/Units/ScanStatus.hpp"

namespace sorrel {

/// The MD5 of whole files, for the duplicate scan, and the state that lets a stop of that scan reach a hash
/// in mid-file.
class StreamFileHashUnit {
 public:
  static StreamFileHashUnit& shard();

  /// 32 lower-case hexadecimal digits for the content of a regular file, read to its end in chunks of 16384
  /// bytes. Nothing for what cannot be read to its end, for anything that is no regular file, and as soon as
  /// the test of scanState before a chunk finds `suspend`. A link in the last component is not followed: a
  /// hash vouches for bytes that lie at this path, so that a folder of links is no copy of the folder they
  /// lead to. Any thread, many at once.
  [[nodiscard]] std::optional<std::string> hashFile(const std::string& path) const;

  /// The same; `isStopped` takes the place of the test of scanState.
  [[nodiscard]] static std::optional<std::string> hashFile(const std::string& path,
                                                           const std::function<bool()>& isStopped);
  /// The same for a file that is open. Nothing with errno if a read failed; with 0 in it for a stop.
  [[nodiscard]] static std::optional<std::string> hashStream(FileReadStream& stream,
                                                             const std::function<bool()>& isStopped);

  /// Raw ScanState; `suspend` breaks a hash at its next chunk.
  std::atomic<int> scanState{static_cast<int>(ScanState::start)};
  [[nodiscard]] bool isSuspended() const { return ScanStatusTable::isSuspended(scanState); }

 private:
  StreamFileHashUnit() = default;
};

}  // namespace sorrel
