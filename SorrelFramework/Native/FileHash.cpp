#include "SorrelFramework/Native/FileHash.hpp"

#include <array>
#include <vector>

#include "SorrelFramework/Platform/Digest/Digest.hpp"
#include "SorrelFramework/Platform/Files/FileReadStream.hpp"

namespace sorrel {
namespace {

bool init(void* digest) { return static_cast<Digest*>(digest)->start(); }
bool update(void* digest, const void* bytes, std::uint32_t count) {
  return static_cast<Digest*>(digest)->update(bytes, count);
}
bool final(std::uint8_t* output, void* digest) { return static_cast<Digest*>(digest)->finish(output); }

std::string hashOfFile(const std::string& path, DigestKind kind) {
  Digest digest(kind);
  return FileHash::hashOfFileAtPath(path, {init, update, final, Digest::length(kind), &digest});
}

/// True if the update operation got the whole file.
bool feed(FileReadStream& stream, const FileHashComputationContext& context) {
  std::array<std::uint8_t, 4096> chunk;
  for (;;) {
    const std::ptrdiff_t count = stream.read(chunk.data(), chunk.size());
    if (count <= 0) return count == 0;
    if (!context.updateFunction(context.digest, chunk.data(), static_cast<std::uint32_t>(count)))
      return false;
  }
}

}  // namespace

std::string FileHash::hashOfFileAtPath(const std::string& path,
                                       const FileHashComputationContext& computationContext) {
  FileReadStream stream = FileReadStream::open(path, FileReadStream::Link::Followed);
  if (!stream.isOpen() || !computationContext.initFunction(computationContext.digest)) return "";
  const bool isWhole = feed(stream, computationContext);
  std::vector<std::uint8_t> digest(computationContext.digestLength);
  const bool isFinished = computationContext.finalFunction(digest.data(), computationContext.digest);
  return isWhole && isFinished ? lowerCaseHex(digest) : "";
}

std::string FileHash::md5HashOfFileAtPath(const std::string& path) {
  return hashOfFile(path, DigestKind::MD5);
}

std::string FileHash::SHA512HashOfFileAtPath(const std::string& path) {
  return hashOfFile(path, DigestKind::SHA512);
}

}  // namespace sorrel
