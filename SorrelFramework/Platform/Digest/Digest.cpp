#include "SorrelFramework/Platform/Digest/Digest.hpp"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <string_view>

namespace sorrel {
namespace {

/// Fetched once: a fetch takes locks and costs as much as the digest of some hundred bytes. Never released,
/// and the library must not clean up at exit: threads of the global queue may hash while the process ends.
/// "-fips": a file's identity needs no approved digest.
EVP_MD* fetch(const char* name) {
  OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
  return EVP_MD_fetch(nullptr, name, "-fips");
}

const EVP_MD* algorithm(DigestKind kind) {
  static EVP_MD* const md5 = fetch("MD5");
  static EVP_MD* const sha512 = fetch("SHA512");
  return kind == DigestKind::MD5 ? md5 : sha512;
}

}  // namespace

void Digest::Release::operator()(evp_md_ctx_st* context) const noexcept { EVP_MD_CTX_free(context); }

Digest::Digest(DigestKind kind) : kind_(kind), context_(EVP_MD_CTX_new()) {}

bool Digest::start() {
  const EVP_MD* const found = algorithm(kind_);
  isRunning_ = found != nullptr && context_ && EVP_DigestInit_ex2(context_.get(), found, nullptr) == 1;
  return isRunning_;
}

bool Digest::update(const void* bytes, std::size_t count) {
  isRunning_ = isRunning_ && EVP_DigestUpdate(context_.get(), bytes, count) == 1;
  return isRunning_;
}

bool Digest::finish(std::uint8_t* output) {
  const bool isGood = isRunning_ && EVP_DigestFinal_ex(context_.get(), output, nullptr) == 1;
  isRunning_ = false;
  return isGood;
}

std::string lowerCaseHex(std::span<const std::uint8_t> bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const std::uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0x0F];
  }
  return text;
}

}  // namespace sorrel
