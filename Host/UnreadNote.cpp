#include "Host/UnreadNote.hpp"

#include <ostream>
#include <system_error>

#include "Host/SafeText.hpp"
#include "SorrelFramework/Scan/UnreadFolders.hpp"

namespace sorrel::cli {

void writeUnreadFolders(std::ostream& out, std::int64_t finderID) {
  const UnreadFolders::Report report = UnreadFolders::of(finderID);
  if (report.count == 0) return;
  out << "sorrel: " << report.count
      << (report.count == 1 ? " folder could not be read; what it holds is not counted:\n"
                            : " folders could not be read; what they hold is not counted:\n");
  for (const UnreadFolders::Folder& folder : report.first) {
    out << "sorrel:   " << printable(folder.path) << " ("
        << std::error_code(folder.error, std::generic_category()).message() << ")\n";
  }
  const auto named = static_cast<std::int64_t>(report.first.size());
  if (report.count > named) out << "sorrel:   and " << report.count - named << " more\n";
}

}  // namespace sorrel::cli
