#pragma once

#include <string>

namespace sorrel {
class FileInformation;
class URL;
}  // namespace sorrel

namespace sorrel {

/// The path of a URL on this machine, in bytes, without a trailing slash; "" for the empty file URL and for
/// URLs that are not file URLs.
std::string pathOf(const URL& url);

/// The name of a record where one line must do: its path, else its title.
std::string nameOf(const FileInformation& record);

}  // namespace sorrel
