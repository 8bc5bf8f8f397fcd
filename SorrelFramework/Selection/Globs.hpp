#pragma once

#include <string>
#include <vector>

namespace sorrel {

/// Shell patterns as fnmatch(3) interprets them without flags, over bytes: "*" matches "/" and a leading dot
/// too, "?" is one byte. A pattern must match the whole text.
class Globs {
 public:
  enum class LetterCase { Counts, Ignored };
  struct Pattern {
    std::string given;                   ///< as the user wrote it
    std::vector<std::string> spellings;  ///< any of them may match
    bool isUsed = false;
  };

  explicit Globs(std::vector<std::string> patterns);
  Globs(std::vector<Pattern> patterns, LetterCase letterCase);

  /// True if any pattern matches. All are tried, so that unused() is right. A text with a NUL byte, where
  /// fnmatch(3) would stop, matches none.
  bool match(const std::string& text);
  /// The patterns, as given, that have matched nothing so far, in their order.
  [[nodiscard]] std::vector<std::string> unused() const;
  [[nodiscard]] bool areAllUsed() const;

 private:
  std::vector<Pattern> patterns_;
  LetterCase letterCase_ = LetterCase::Counts;
};

}  // namespace sorrel
