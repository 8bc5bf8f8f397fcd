#pragma once

#include <string>
#include <string_view>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel {

/// The variable with the descriptor number of a child's notes; see ChildNotes.
inline constexpr const char* kNotesVariable = "SORREL_NOTES";

/// What a child process reports to this process besides its output: a file in memory that the child inherits
/// (ChildProcess). Unlike a pipe it never makes the child wait.
class ChildNotes {
 public:
  static constexpr std::size_t kMostBytes = std::size_t{1} << 20;

  ChildNotes();

  /// Never one of the standard streams; -1 if the system has no memory or descriptor left.
  [[nodiscard]] int descriptor() const { return file_.get(); }
  /// The child's notes, at most kMostBytes. Must not be called while the child runs.
  [[nodiscard]] std::string text() const;

  /// Called in the child: writes `text`. False without a parent that requested notes, and if the text is
  /// lost.
  static bool leave(std::string_view text);

 private:
  FileDescriptor file_;
};

}  // namespace sorrel
