#include "Helper/HelperConfiguration.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>

#include "SorrelFramework/Native/RemovalPolicy.hpp"
#include "SorrelFramework/Platform/FileDescriptor.hpp"

namespace sorrel::helper {
namespace {

constexpr std::size_t kMostBytes = std::size_t{64} << 10;
constexpr int kMostSeconds = 3600;

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

bool setValue(std::string_view key, std::string_view value, HelperConfiguration& configuration) {
  if (key == "grace-seconds") return setSeconds(value, configuration.grace);
  if (key == "idle-seconds") return setSeconds(value, configuration.idle);
  if (key == "allow-file-system" && !value.empty()) {
    configuration.allowedFileSystems.emplace_back(value);
    return true;
  }
  if (key != "refuse" || !RemovalPolicy::isNormalPath(value)) return false;
  configuration.refusedPlaces.emplace_back(value);
  return true;
}

bool setLine(std::string_view words, HelperConfiguration& configuration) {
  const std::size_t equals = words.find('=');
  if (equals == std::string_view::npos) return false;
  return setValue(trimmed(words.substr(0, equals)), trimmed(words.substr(equals + 1)), configuration);
}

bool isRootsAlone(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == 0 &&
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

}  // namespace

HelperConfiguration HelperConfiguration::parse(std::string_view text, std::string& fault) {
  HelperConfiguration configuration;
  for (int line = 1; !text.empty(); ++line) {
    const std::size_t end = text.find('\n');
    const std::string_view words = trimmed(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (words.empty() || words.front() == '#' || setLine(words, configuration)) continue;
    if (fault.empty()) fault = "line " + std::to_string(line) + " makes no sense";
  }
  return configuration;
}

HelperConfiguration HelperConfiguration::read(const std::string& file, std::string& fault) {
  fault.clear();
  // O_NONBLOCK: a FIFO in its place must not keep the helper from starting.
  const FileDescriptor descriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!descriptor.isOpen()) {
    if (errno != ENOENT && errno != ENOTDIR) fault = "cannot be opened";
    return {};
  }
  std::string text;
  if (!isRootsAlone(descriptor.get())) {
    fault = "not written by root alone";
  } else if (!readAll(descriptor.get(), text)) {
    fault = "cannot be read";
  } else {
    return parse(text, fault);
  }
  return {};
}

}  // namespace sorrel::helper
