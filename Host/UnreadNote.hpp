#pragma once

#include <cstdint>
#include <iosfwd>

namespace sorrel::cli {

/// Writes how many folders and files the scan of a feature could not read, and the first of them with the
/// reasons; nothing if it read all.
void writeUnreadFolders(std::ostream& out, std::int64_t finderID);

}  // namespace sorrel::cli
