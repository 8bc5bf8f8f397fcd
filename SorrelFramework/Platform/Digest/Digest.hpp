#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

struct evp_md_ctx_st;

namespace sorrel {

enum class DigestKind { MD5, SHA512 };

/// One running digest of a stream of bytes: MD5 (RFC 1321) or SHA-512 (FIPS 180-4). Not shared between
/// threads.
class Digest {
 public:
  static constexpr std::size_t kLongest = 64;

  /// Bytes of a finished digest: 16 or 64.
  static constexpr std::size_t length(DigestKind kind) { return kind == DigestKind::MD5 ? 16 : 64; }

  explicit Digest(DigestKind kind);

  /// Begins a new digest. False if the system's library does not offer it; all further steps fail then too.
  bool start();
  /// Any number of bytes.
  bool update(const void* bytes, std::size_t count);
  /// Writes length() bytes to `output`; then only start() may follow.
  bool finish(std::uint8_t* output);

 private:
  struct Release {
    void operator()(evp_md_ctx_st* context) const noexcept;
  };

  DigestKind kind_;
  std::unique_ptr<evp_md_ctx_st, Release> context_;
  bool isRunning_ = false;
};

/// Two lower-case hexadecimal digits for each byte.
std::string lowerCaseHex(std::span<const std::uint8_t> bytes);

}  // namespace sorrel
