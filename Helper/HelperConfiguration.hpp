#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Helper/HelperLog.hpp"

namespace sorrel::helper {

/// What the administrator adds to the rules of the helper, /etc/NAME/helper.conf. It can only make the rules
/// about places stricter: nothing lifts what is built in.
///
/// Lines "key = value"; empty lines and lines that begin with "#" are skipped:
///   refuse = /absolute/path       neither the place, nor what lies in it, nor what is above it; repeatable,
///                                 with or without a slash at the end. The path is written plainly: quotes,
///                                 backslashes, and a comment after it are faults
///   allow-file-system = TYPE      works on this type too, as /proc/self/mountinfo calls it; repeatable
///   log-paths = yes | no          whether the journal names what was removed; yes by default
///   idle-seconds = 0...3600       how long the helper stays without work; 300 by default
///
/// A file that exists and cannot be used whole makes the helper refuse every event: the line that was not
/// understood may have been the one that protects something.
struct HelperConfiguration {
  std::vector<std::string> refusedPlaces;
  std::vector<std::string> allowedFileSystems;
  bool logsPaths = true;
  std::chrono::seconds idle{300};
  /// Why the file cannot be used; "" if it can, or if there is none. With a fault no event may be carried
  /// out. It names no path, so that it can be shown to any caller.
  std::string fault;

  /// Reads the file. Only root may be able to write it and the folder that it lies in, and neither may be a
  /// link. No file is no fault.
  static HelperConfiguration read(const std::string& file);
  /// Reads the text of such a file.
  static HelperConfiguration parse(std::string_view text);

  friend bool operator==(const HelperConfiguration&, const HelperConfiguration&) = default;
};

/// A file of that form, which may change while the helper runs.
class ConfigurationFile {
 public:
  ConfigurationFile(std::string path, HelperLog& log) : path_(std::move(path)), log_(log) {}
  /// Reads it anew. What it says now holds until the next call. If that is something else than before, logs
  /// its fault and each refused path that does not exist: it may be misspelled. Such a path is refused all
  /// the same.
  const HelperConfiguration& read();

 private:
  std::string path_;
  HelperLog& log_;
  HelperConfiguration last_;
};

}  // namespace sorrel::helper
