#pragma once

#include <span>
#include <string_view>

namespace sorrel {

/// A content type and the types it conforms to, separated by blanks.
struct TypeRow {
  std::string_view type;
  std::string_view parents;
};

/// File name extensions (lower case, separated by blanks) and the type they stand for. `also` are types that
/// an item of this extension conforms to beyond its type's parents.
struct ExtensionRow {
  std::string_view extensions;
  std::string_view type;
  std::string_view also = {};
};

/// A MIME type, or the start of one if it ends in "*", and the type it stands for; `also` as above. A row
/// that begins with "=" holds for types that conform to the rest.
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
/// Tried in this order; the last row holds for everything.
std::span<const MimeRow> mimeRows();

}  // namespace sorrel
