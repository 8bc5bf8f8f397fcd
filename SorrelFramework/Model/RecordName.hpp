#pragma once

#include <string>

namespace sorrel {
class FileInformation;
class URL;
}  // namespace sorrel

namespace sorrel {

/// The path of a URL on this machine, in bytes, without a slash at its end; "" for the empty file URL and for
/// URLs that are no files.
std::string pathOf(const URL& url);

/// What a record is called where one line must do: its path, else its title.
std::string nameOf(const FileInformation& record);

}  // namespace sorrel
