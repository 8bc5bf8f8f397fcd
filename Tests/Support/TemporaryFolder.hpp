#pragma once

#include <string>
#include <string_view>

namespace sorrel::test {

/// A folder of one test, removed with everything in it when the test ends. Its path contains no link.
class TemporaryFolder {
 public:
  /// Prefix of the names of these folders.
  static constexpr std::string_view kPrefix = "sorrel-test-";

  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }
  /// Path of the entry `name` (which may contain slashes), whether it exists or not.
  [[nodiscard]] std::string path(std::string_view name) const;

  /// Writes a file and creates the folders above it; returns its path.
  std::string file(std::string_view name, std::string_view content = {}) const;
  /// The same for a program of the shell /bin/sh.
  std::string script(std::string_view name, std::string_view commands) const;
  /// Creates a folder and those above it; returns its path.
  std::string folder(std::string_view name) const;

 private:
  std::string path_;
};

/// The bytes of a file; a failed expectation and "" if it cannot be read.
std::string contentOf(const std::string& path);

}  // namespace sorrel::test
