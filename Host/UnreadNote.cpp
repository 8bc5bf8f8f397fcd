#include "Host/UnreadNote.hpp"

#include <ostream>
#include <string>
#include <system_error>
#include <vector>

#include "Host/SafeText.hpp"
#include "SorrelFramework/Scan/UnreadFolders.hpp"

namespace sorrel::cli {

namespace {

using Items = std::vector<UnreadFolders::Folder>;

void writeItems(std::ostream& out, std::int64_t count, const Items& first, const std::string& sentence) {
  if (count == 0) return;
  out << "sorrel: " << count << ' ' << sentence << ":\n";
  for (const UnreadFolders::Folder& item : first) {
    out << "sorrel:   " << printable(item.path) << " ("
        << std::error_code(item.error, std::generic_category()).message() << ")\n";
  }
  const auto named = static_cast<std::int64_t>(first.size());
  if (count > named) out << "sorrel:   and " << count - named << " more\n";
}

}  // namespace

void writeUnreadFolders(std::ostream& out, std::int64_t finderID) {
  const UnreadFolders::Report report = UnreadFolders::of(finderID);
  writeItems(out, report.count, report.first,
             report.count == 1 ? "folder could not be read; what it holds is not counted"
                               : "folders could not be read; what they hold is not counted");
  writeItems(out, report.fileCount, report.firstFiles,
             report.fileCount == 1 ? "file could not be read; no copy of it is known"
                                   : "files could not be read; no copies of them are known");
}

}  // namespace sorrel::cli
