#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace sorrel::cli {

struct CleanOptions;

/// Declares `--select GLOB...` and `--except GLOB...`, which take the words up to the next option.
void addGlobOptions(CLI::App& parser, CleanOptions& order);

/// Takes these options with their globs out of `words`, if `parser` declares them. To be called before the
/// words are parsed. A glob that begins with "-" has to follow the "=" of `--select=GLOB`.
void takeGlobOptions(const CLI::App& parser, std::vector<std::string>& words, CleanOptions& order);

}  // namespace sorrel::cli
