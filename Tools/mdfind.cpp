// mdfind [-onlyin DIR] QUERY: the paths of the matching items, one on a line.
//
// Searches the disk, as there is no index: everything on the file system of DIR, or of the volume's root
// without one. A path that contains a line feed, is not UTF-8 or is longer than PATH_MAX cannot be written on
// a line and is left out; their number is reported on standard error. Exits with 0, also if nothing was
// found, and with 1 for wrong use and for output that was lost.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "SorrelFramework/Platform/Machine/ChildNotes.hpp"
#include "SorrelFramework/Scan/UnreadFolders.hpp"
#include "Tools/FindQuery.hpp"
#include "Tools/ToolHost.hpp"
#include "Tools/ToolOutput.hpp"
#include "Tools/TreeSearch.hpp"

namespace {

using namespace sorrel::tools;
using sorrel::ChildNotes;
using sorrel::UnreadFolders;

int wrongUse() {
  std::fputs("Usage: mdfind [-onlyin DIR] QUERY\n", stderr);
  return 1;
}

/// The folder's absolute path without a trailing slash.
std::string absoluteFolder(const std::string& folder) {
  std::error_code error;
  std::string path = std::filesystem::absolute(folder, error).string();
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return error ? std::string() : path;
}

}  // namespace

int main(int count, char** words) {
  ToolOutput output;
  std::string folder = installToolHost();
  std::vector<std::string> arguments(words + 1, words + count);
  if (arguments.size() >= 2 && arguments[0] == "-onlyin") {
    if (arguments[1].empty()) return wrongUse();
    folder = absoluteFolder(arguments[1]);
    arguments.erase(arguments.begin(), arguments.begin() + 2);
  }
  if (arguments.size() != 1) return wrongUse();
  const std::optional<FindQuery> query = FindQuery::parse(arguments[0]);
  if (!query) {
    std::fputs("mdfind: that is no query\n", stderr);
    return 1;
  }

  std::size_t leftOut = 0;
  constexpr std::int64_t thisSearch = 0;
  for (const std::string& path : searchTree(folder, *query, UnreadFolders::handler(thisSearch))) {
    if (ToolOutput::fits(path)) {
      output.addLine(path);
    } else {
      ++leftOut;
    }
  }
  if (leftOut > 0) std::fprintf(stderr, "mdfind: %zu found, but their names fit on no line\n", leftOut);
  ChildNotes::leave(UnreadFolders::textOf(UnreadFolders::of(thisSearch)));
  return output.finish() ? 0 : 1;
}
