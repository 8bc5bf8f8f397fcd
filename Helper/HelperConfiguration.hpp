#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Helper/HelperLog.hpp"

namespace sorrel::helper {

/// The administrator's additions to the rules of the helper, /etc/NAME/helper.conf. It can only make the
/// rules about paths stricter: nothing lifts the built-in rules.
///
/// Lines "key = value"; empty lines and lines that begin with "#" are skipped:
///
///     refuse = /absolute/path       the item, its contents and its ancestors are never touched; repeatable,
///                                   with or without a trailing slash. The path is written plainly: quotes,
///                                   backslashes, and a comment after it are faults
///     allow-file-system = TYPE      also works on this type, named as in /proc/self/mountinfo; repeatable
///     log-paths = yes | no          whether the journal names the removed paths; yes by default
///     idle-seconds = 0...3600       how long the helper stays without work; 300 by default
///
/// If a file exists and is not valid as a whole, the helper refuses every event: the line that was not
/// understood may have been one that protects a path.
struct HelperConfiguration {
  std::vector<std::string> refusedPlaces;
  std::vector<std::string> allowedFileSystems;
  bool logsPaths = true;
  std::chrono::seconds idle{300};
  /// Why the file cannot be used; "" if it can, or if there is none. With a fault no event may be executed.
  /// It names no path, so that it can be shown to any caller.
  std::string fault;

  /// Reads the file. Only root may have write permission on it and on its folder, and neither may be a link.
  /// A missing file is not a fault.
  static HelperConfiguration read(const std::string& file);
  /// Reads the text of such a file.
  static HelperConfiguration parse(std::string_view text);

  friend bool operator==(const HelperConfiguration&, const HelperConfiguration&) = default;
};

/// A file of that form, which may change while the helper runs.
class ConfigurationFile {
 public:
  ConfigurationFile(std::string path, HelperLog& log) : path_(std::move(path)), log_(log) {}
  /// Reads the file again. The result is valid until the next call. If the content has changed, logs its
  /// fault and each refused path that does not exist: it may be misspelled. Such a path is refused all the
  /// same.
  const HelperConfiguration& read();

 private:
  std::string path_;
  HelperLog& log_;
  HelperConfiguration last_;
};

}  // namespace sorrel::helper
