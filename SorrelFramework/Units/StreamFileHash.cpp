#include "SorrelFramework/Units/StreamFileHash.hpp"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "SorrelFramework/Platform/Digest/Digest.hpp"
#include "SorrelFramework/Platform/Files/FileReadStream.hpp"

namespace sorrel {

StreamFileHashUnit& StreamFileHashUnit::shard() {
  static StreamFileHashUnit unit;
  return unit;
}

std::optional<std::string> StreamFileHashUnit::hashFile(const std::string& path) const {
  return hashFile(path, [this] { return isSuspended(); });
}

std::optional<std::string> StreamFileHashUnit::hashFile(const std::string& path,
                                                        const std::function<bool()>& isStopped) {
  FileReadStream stream = FileReadStream::open(path, FileReadStream::Link::Refused);
  return stream.isOpen() ? hashStream(stream, isStopped) : std::nullopt;
}

std::optional<std::string> StreamFileHashUnit::hashStream(FileReadStream& stream,
                                                          const std::function<bool()>& isStopped) {
  Digest digest(DigestKind::MD5);
  digest.start();
  std::array<std::uint8_t, 16384> chunk{};
  bool hasMoreData = true;
  int error = 0;
  while (hasMoreData) {
    if (isStopped()) break;
    const std::ptrdiff_t count = stream.read(chunk.data(), chunk.size());
    if (count < 0) error = errno;
    if (count < 0) break;
    if (count == 0) {
      hasMoreData = false;
    } else {
      digest.update(chunk.data(), static_cast<std::uint32_t>(count));
    }
  }
  std::array<std::uint8_t, Digest::length(DigestKind::MD5)> result{};
  const bool isFinished = digest.finish(result.data());
  errno = error;
  return isFinished && !hasMoreData ? std::optional(lowerCaseHex(result)) : std::nullopt;
}

}  // namespace sorrel
