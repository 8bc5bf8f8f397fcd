#pragma once

#include <string>
#include <vector>

namespace sorrel::cli {

/// Shell patterns as fnmatch(3) reads them without flags, over bytes: "*" meets "/" and a leading dot too,
/// "?" is one byte. A pattern must fit the whole text.
class Globs {
 public:
  explicit Globs(std::vector<std::string> patterns);

  /// Whether any pattern fits. All are tried, so that unused() is right. A text with a NUL byte, which a
  /// pattern would not see the end of, fits none.
  bool match(const std::string& text);
  /// The patterns that fitted nothing so far, in their order.
  [[nodiscard]] std::vector<std::string> unused() const;

 private:
  struct Pattern {
    std::string text;
    bool isUsed = false;
  };
  std::vector<Pattern> patterns_;
};

}  // namespace sorrel::cli
