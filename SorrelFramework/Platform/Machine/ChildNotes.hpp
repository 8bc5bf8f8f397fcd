#pragma once

#include <string>
#include <string_view>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel {

/// The variable that names the descriptor of a child's notes; see ChildNotes.
inline constexpr const char* kNotesVariable = "SORREL_NOTES";

/// What a child of ours reports to this process besides its output: a file in memory that the child inherits
/// (ChildProcess). Unlike a pipe it never makes the child wait.
class ChildNotes {
 public:
  static constexpr std::size_t kMostBytes = std::size_t{1} << 20;

  ChildNotes();

  /// Never one of the standard streams; -1 if the system has no memory or descriptor left.
  [[nodiscard]] int descriptor() const { return file_.get(); }
  /// What the child has written, kMostBytes at most. Not while the child runs.
  [[nodiscard]] std::string text() const;

  /// In the child: writes `text`. False without a parent that asked for notes, and if it is lost.
  static bool leave(std::string_view text);

 private:
  FileDescriptor file_;
};

}  // namespace sorrel
