#include "SorrelFramework/Selection/Globs.hpp"

#include <fnmatch.h>

#include <algorithm>
#include <utility>

#include "SorrelFramework/Platform/Text/Text.hpp"

namespace sorrel {
namespace {

bool fits(const std::string& pattern, const std::string& text) {
  return ::fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
}

}  // namespace

Globs::Globs(std::vector<std::string> patterns) {
  for (std::string& pattern : patterns) patterns_.push_back({pattern, {pattern}});
}

Globs::Globs(std::vector<Pattern> patterns, LetterCase letterCase)
    : patterns_(std::move(patterns)), letterCase_(letterCase) {}

bool Globs::match(const std::string& text) {
  if (text.find('\0') != std::string::npos) return false;
  const bool isFolded = letterCase_ == LetterCase::Ignored;
  const std::string folded = isFolded ? lowercased(text) : std::string();
  bool any = false;
  for (Pattern& pattern : patterns_) {
    const bool isFit = std::ranges::any_of(pattern.spellings, [&](const std::string& spelling) {
      // The unfolded pattern too: [[:upper:]] matches no folded text.
      return fits(spelling, text) || (isFolded && fits(lowercased(spelling), folded));
    });
    pattern.isUsed = pattern.isUsed || isFit;
    any = any || isFit;
  }
  return any;
}

std::vector<std::string> Globs::unused() const {
  std::vector<std::string> list;
  for (const Pattern& pattern : patterns_) {
    if (!pattern.isUsed) list.push_back(pattern.given);
  }
  return list;
}

bool Globs::areAllUsed() const { return std::ranges::all_of(patterns_, &Pattern::isUsed); }

}  // namespace sorrel
