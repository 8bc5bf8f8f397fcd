#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace sorrel {

/// One kind of digest for FileHash::hashOfFileAtPath: its operations and its state. An operation returns
/// false if it failed, which counts like a failed read.
struct FileHashComputationContext {
  bool (*initFunction)(void* digest);
  bool (*updateFunction)(void* digest, const void* bytes, std::uint32_t count);
  bool (*finalFunction)(std::uint8_t* output, void* digest);
  std::size_t digestLength;  ///< bytes that finalFunction writes
  void* digest;              ///< the state, which the caller owns
};

/// Digests of whole files for applications: lower-case hexadecimal digits, or "" for an item that is not a
/// regular file or cannot be read to its end. Links are followed: the caller names the file. Any thread, many
/// at once; a stop has no effect.
class FileHash {
 public:
  FileHash() = delete;

  /// Reads the file in chunks of 4096 bytes. `computationContext.finalFunction` runs after each successful
  /// initFunction, also when a read failed; without a file no operation runs.
  [[nodiscard]] static std::string hashOfFileAtPath(const std::string& path,
                                                    const FileHashComputationContext& computationContext);
  /// 32 digits.
  [[nodiscard]] static std::string md5HashOfFileAtPath(const std::string& path);
  /// 128 digits.
  [[nodiscard]] static std::string SHA512HashOfFileAtPath(const std::string& path);
};

}  // namespace sorrel
