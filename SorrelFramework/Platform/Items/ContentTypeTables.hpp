#pragma once

#include <span>
#include <string_view>

namespace sorrel {

/// A content type and the types it conforms to, separated by blanks.
struct TypeRow {
  std::string_view type;
  std::string_view parents;
};

/// File name extensions (lower case, separated by blanks) and their type. `also` are types that an item of
/// this extension conforms to in addition to its type's parents.
struct ExtensionRow {
  std::string_view extensions;
  std::string_view type;
  std::string_view also = {};
};

/// A MIME type, or the start of one if it ends in "*", and its content type; `also` as above. A row that
/// begins with "=" applies to types that conform to the rest.
struct MimeRow {
  std::string_view mime;
  std::string_view type;
  std::string_view also = {};
};

/// Every known type, parents as declared by the system.
std::span<const TypeRow> typeRows();
/// Extensions of plain files.
std::span<const ExtensionRow> fileExtensionRows();
/// Extensions of folders. All but frameworks are packages.
std::span<const ExtensionRow> folderExtensionRows();
/// Tried in this order; the last row matches everything.
std::span<const MimeRow> mimeRows();

}  // namespace sorrel
