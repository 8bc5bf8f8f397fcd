#include "Tests/Support/TemporaryVolume.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <ostream>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"

namespace sorrel::test {

namespace fs = std::filesystem;

TemporaryVolume::TemporaryVolume() {
  folder("Users/alice");
  folder("Resources");
}

void TemporaryVolume::install() const {
  Host::install(
      Host::macVolume(path(), std::string(kUser), {std::string(kBundleIdentifier), path("Resources"), {}}));
}

std::string TemporaryVolume::file(std::string_view name, ByteCount size) const {
  std::string made = file(name);
  EXPECT_EQ(::truncate(made.c_str(), static_cast<off_t>(size.value)), 0) << made;
  return made;
}

std::string TemporaryVolume::filledFile(std::string_view name, ByteCount size, unsigned seed) const {
  std::string content(size.value, '\0');
  std::uint32_t state = seed * 2654435761U + 1U;
  for (char& byte : content) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<char>(state >> 24U);
  }
  return file(name, content);
}

std::string TemporaryVolume::link(std::string_view name, std::string_view target) const {
  std::string made = path(name);
  fs::create_directories(fs::path(made).parent_path());
  EXPECT_EQ(::symlink(std::string(target).c_str(), made.c_str()), 0) << made;
  return made;
}

std::string TemporaryVolume::fifo(std::string_view name) const {
  std::string made = path(name);
  fs::create_directories(fs::path(made).parent_path());
  EXPECT_EQ(::mkfifo(made.c_str(), S_IRUSR | S_IWUSR), 0) << made;
  return made;
}

std::string TemporaryVolume::chain(std::string_view top, const std::string& name, int count) const {
  std::string made = folder(top);
  constexpr int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
  FileDescriptor at(::open(made.c_str(), flags));
  for (int i = 0; i < count; ++i) {
    EXPECT_EQ(::mkdirat(at.get(), name.c_str(), S_IRWXU), 0) << i;
    at = FileDescriptor(::openat(at.get(), name.c_str(), flags));
    made.append("/").append(name);
  }
  return made;
}

void TemporaryVolume::setMode(std::string_view name, mode_t mode) const {
  EXPECT_EQ(::chmod(path(name).c_str(), mode), 0) << name;
}

void TemporaryVolume::setOwner(std::string_view name, uid_t uid) const {
  EXPECT_EQ(::lchown(path(name).c_str(), uid, static_cast<gid_t>(-1)), 0) << name;
}

void TemporaryVolume::setModified(std::string_view name, std::int64_t seconds) const {
  const timespec times[] = {{0, UTIME_OMIT}, {seconds, 0}};
  EXPECT_EQ(::utimensat(AT_FDCWD, path(name).c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << name;
}

URL TemporaryVolume::url(std::string_view name) const {
  return name.empty() ? URL::fileURL(path(), true) : URL::fileURL(path(name), name.ends_with('/'));
}

namespace {

constexpr std::size_t kBlock = 1 << 16;

/// FNV-1a, 64 bits, over the number and the bytes of each block that is not all zeros, as in most large files
/// of tests.
std::uint64_t digestOf(const std::string& path) {
  static const std::string zeros(kBlock, '\0');
  std::uint64_t digest = 14695981039346656037U;
  const auto add = [&digest](std::uint64_t value) { digest = (digest ^ value) * 1099511628211U; };
  std::ifstream stream(path, std::ios::binary);
  std::string block(kBlock, '\0');
  for (std::uint64_t number = 0; stream; ++number) {
    stream.read(block.data(), kBlock);
    const std::string_view bytes(block.data(), static_cast<std::size_t>(stream.gcount()));
    if (bytes == std::string_view(zeros).substr(0, bytes.size())) continue;
    add(number);
    for (const char byte : bytes) add(static_cast<unsigned char>(byte));
  }
  return digest;
}

TreeEntry entryOf(const std::string& path, std::string below) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  TreeEntry entry{
      std::move(below), status.st_mode, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec, {}, 0};
  if (S_ISLNK(status.st_mode)) entry.linkText = fs::read_symlink(path).string();
  if (S_ISREG(status.st_mode)) entry.digest = digestOf(path);
  return entry;
}

}  // namespace

std::vector<TreeEntry> snapshotOf(const std::string& path) {
  std::vector<TreeEntry> entries = {entryOf(path, ".")};
  for (const auto& item : fs::recursive_directory_iterator(path)) {
    const std::string found = item.path().string();
    entries.push_back(entryOf(found, found.substr(path.size() + 1)));
  }
  std::sort(entries.begin() + 1, entries.end(),
            [](const TreeEntry& a, const TreeEntry& b) { return a.path < b.path; });
  return entries;
}

void PrintTo(const TreeEntry& entry, std::ostream* out) {
  *out << entry.path << " mode " << std::oct << entry.mode << std::dec << " size " << entry.size
       << " modified " << entry.modifiedSeconds << '.' << entry.modifiedNanoseconds;
  if (!entry.linkText.empty()) *out << " -> " << entry.linkText;
  if (entry.digest != 0) *out << " digest " << entry.digest;
}

}  // namespace sorrel::test
