#include "Host/GlobOptions.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <utility>

#include "Host/CommandError.hpp"
#include "Host/Invocation.hpp"

namespace sorrel::cli {
namespace {

constexpr const char* kSelect = "--select";
constexpr const char* kExcept = "--except";

/// Takes `OPTION GLOB...` and `OPTION=GLOB...` out of the words: CLI11 would take the words of other options.
std::vector<std::string> takeGlobs(std::vector<std::string>& words, const std::string& option) {
  const std::string withValue = option + "=";
  const auto end = std::ranges::find(words, "--");
  std::vector<std::string> globs;
  std::vector<std::string> rest;
  auto word = words.begin();
  while (word != end) {
    if (*word != option && !word->starts_with(withValue)) {
      rest.push_back(*word++);
      continue;
    }
    const std::size_t before = globs.size();
    if (word->starts_with(withValue)) globs.push_back(word->substr(withValue.size()));
    for (++word; word != end && !word->starts_with('-'); ++word) globs.push_back(*word);
    if (globs.size() == before) throw CommandError(ExitStatus::WrongUse, option + " needs a GLOB.");
  }
  for (const std::string& glob : globs) {
    if (glob.empty()) throw CommandError(ExitStatus::WrongUse, option + ": a GLOB may not be empty");
  }
  rest.insert(rest.end(), end, words.end());
  words = std::move(rest);
  return globs;
}

}  // namespace

void addGlobOptions(CLI::App& parser, CleanOptions& order) {
  parser
      .add_option(kSelect, order.globs, "Clean what these patterns fit: paths, or titles of what has no path")
      ->type_name("GLOB");
  parser.add_option(kExcept, order.exceptions, "Leave what these patterns fit, and the folders that hold it")
      ->type_name("GLOB");
}

void takeGlobOptions(const CLI::App& parser, std::vector<std::string>& words, CleanOptions& order) {
  if (parser.get_option_no_throw(kSelect) == nullptr) return;
  order.globs = takeGlobs(words, kSelect);
  order.exceptions = takeGlobs(words, kExcept);
}

}  // namespace sorrel::cli
