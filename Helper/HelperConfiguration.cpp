#include "Helper/HelperConfiguration.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <utility>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "SorrelFramework/Removal/RemovalPolicy.hpp"

namespace sorrel::helper {
namespace {

constexpr std::size_t kMostBytes = std::size_t{64} << 10;
constexpr int kMostSeconds = 3600;

bool isBlank(char byte) { return byte == ' ' || byte == '\t'; }
bool isControl(char byte) { return static_cast<unsigned char>(byte) < ' ' || byte == '\x7f'; }
bool isOddControl(char byte) { return isControl(byte) && byte != '\t'; }

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool setSeconds(std::string_view value, std::chrono::seconds& place) {
  int seconds = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), seconds);
  if (error != std::errc() || end != value.data() + value.size()) return false;
  if (seconds < 0 || seconds > kMostSeconds) return false;
  place = std::chrono::seconds(seconds);
  return true;
}

/// True if an editor or a web page has left a typographic quote or a no-break space at the end.
bool endsTypographically(std::string_view value) {
  constexpr std::string_view kEnds[] = {"\u00a0", "\u2018", "\u2019", "\u201c", "\u201d", "\u202f"};
  return std::ranges::any_of(kEnds, [value](std::string_view end) { return value.ends_with(end); });
}

/// The value of "refuse" as a path, "" if it is not a plain path. A quoted path, an escape, a pattern, a
/// variable, a list or a comment after the path would name a path that does not exist, and so protect
/// nothing.
std::string refusedPlace(std::string_view value) {
  constexpr std::string_view kNeverPlain = "\"\\*?${};";
  if (value.find_first_of(kNeverPlain) != std::string_view::npos || value.ends_with('\'')) return {};
  if (value.find(",/") != std::string_view::npos || endsTypographically(value)) return {};
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (isControl(value[i])) return {};
    if ((value[i] == '#' || value[i] == '/') && i > 0 && isBlank(value[i - 1])) return {};
  }
  while (value.ends_with('/')) value.remove_suffix(1);
  return RemovalPolicy::isNormalPath(value) ? std::string(value) : std::string();
}

/// "ext4", "fuse.sshfs"
bool isTypeName(std::string_view value) {
  constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";
  return !value.empty() && value.find_first_not_of(kLetters) == std::string_view::npos;
}

bool setValue(std::string_view key, std::string_view value, HelperConfiguration& configuration) {
  if (key == "idle-seconds") return setSeconds(value, configuration.idle);
  if (key == "log-paths" && (value == "yes" || value == "no")) {
    configuration.logsPaths = value == "yes";
    return true;
  }
  if (key == "allow-file-system" && isTypeName(value)) {
    configuration.allowedFileSystems.emplace_back(value);
    return true;
  }
  std::string place = key == "refuse" ? refusedPlace(value) : std::string();
  if (place.empty()) return false;
  configuration.refusedPlaces.push_back(std::move(place));
  return true;
}

bool setLine(std::string_view words, HelperConfiguration& configuration) {
  const std::size_t equals = words.find('=');
  if (equals == std::string_view::npos) return false;
  return setValue(trimmed(words.substr(0, equals)), trimmed(words.substr(equals + 1)), configuration);
}

bool isRootsAlone(int descriptor, mode_t type) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 && (status.st_mode & S_IFMT) == type && status.st_uid == 0 &&
         (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// At most kMostBytes; false if there are more, or if they can't be read.
bool readAll(int descriptor, std::string& text) {
  std::array<char, 4096> buffer{};
  for (;;) {
    const ssize_t got = ::read(descriptor, buffer.data(), buffer.size());
    if (got == 0) return true;
    if (got < 0) return false;
    text.append(buffer.data(), static_cast<std::size_t>(got));
    if (text.size() > kMostBytes) return false;
  }
}

HelperConfiguration unusable(const char* fault) {
  HelperConfiguration configuration;
  configuration.fault = fault;
  return configuration;
}

HelperConfiguration readIn(int folder, const char* name) {
  // O_NONBLOCK: a FIFO at this path must not keep the helper from starting.
  const FileDescriptor file(::openat(folder, name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!file.isOpen()) return errno == ENOENT ? HelperConfiguration() : unusable("cannot be opened");
  if (!isRootsAlone(file.get(), S_IFREG)) return unusable("others than root may write it");
  std::string text;
  if (!readAll(file.get(), text)) return unusable("cannot be read whole");
  return HelperConfiguration::parse(text);
}

}  // namespace

HelperConfiguration HelperConfiguration::parse(std::string_view text) {
  HelperConfiguration configuration;
  for (int line = 1; !text.empty(); ++line) {
    const std::size_t end = text.find('\n');
    const std::string_view words = trimmed(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    // A control byte in a comment may be a line end on another system, and the text after it a line.
    const bool isComment = words.starts_with('#') && std::ranges::none_of(words, isOddControl);
    if (words.empty() || isComment || setLine(words, configuration)) continue;
    if (configuration.fault.empty()) configuration.fault = "line " + std::to_string(line) + " makes no sense";
  }
  return configuration;
}

HelperConfiguration HelperConfiguration::read(const std::string& file) {
  const std::size_t slash = file.rfind('/');
  if (slash == std::string::npos) return unusable("cannot be opened");
  constexpr int flags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  const FileDescriptor folder(::open(file.substr(0, slash).c_str(), flags));
  if (!folder.isOpen()) return errno == ENOENT ? HelperConfiguration() : unusable("cannot be opened");
  // Another user could remove the file, and with it all its rules.
  if (!isRootsAlone(folder.get(), S_IFDIR)) return unusable("others than root may write its folder");
  return readIn(folder.get(), file.c_str() + slash + 1);
}

const HelperConfiguration& ConfigurationFile::read() {
  HelperConfiguration now = HelperConfiguration::read(path_);
  if (now == last_) return last_;
  last_ = std::move(now);
  if (!last_.fault.empty()) log_.error(path_ + ": " + last_.fault + ": all events are refused");
  for (const std::string& place : last_.refusedPlaces) {
    struct stat status {};
    if (::lstat(place.c_str(), &status) == 0 || (errno != ENOENT && errno != ENOTDIR)) continue;
    log_.error(path_ + ": refuse: there is no \"" + escapedForLog(place) + "\"");
  }
  return last_;
}

}  // namespace sorrel::helper
