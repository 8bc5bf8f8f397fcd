#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace sorrel::helper {

/// What the administrator adds to the rules of the helper, /etc/NAME/helper.conf. It can only be stricter
/// about places: nothing lifts what is built in.
///
/// Lines "key = value"; empty ones and those that begin with "#" are passed over:
///   refuse = /absolute/path       neither the place, nor what lies in it, nor what is above it; repeatable
///   allow-file-system = TYPE      works on this type too, as /proc/self/mountinfo calls it; repeatable
///   grace-seconds = 0...3600      how long work goes on after its caller has left; 30 by default
///   idle-seconds = 0...3600       how long the helper stays without work; 300 by default
struct HelperConfiguration {
  std::vector<std::string> refusedPlaces;
  std::vector<std::string> allowedFileSystems;
  std::chrono::seconds grace{30};
  std::chrono::seconds idle{300};
  /// How long one that gave up its name waits for those who looked it up before that. Not in the file.
  std::chrono::milliseconds farewell{500};

  /// What the file says. Nothing of it if anybody but root could have written it. `fault` tells about that,
  /// or about the first line that makes no sense, and is "" otherwise.
  static HelperConfiguration read(const std::string& file, std::string& fault);
  /// What the text of such a file says. Lines that make no sense are passed over: a slip in one of them must
  /// not lift the refusals of the others.
  static HelperConfiguration parse(std::string_view text, std::string& fault);
};

}  // namespace sorrel::helper
