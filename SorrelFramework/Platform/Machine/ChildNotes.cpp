#include "SorrelFramework/Platform/Machine/ChildNotes.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>

namespace sorrel {
namespace {

/// Only a file in memory can be sealed, so a wrong number can't lead to one of the user's files.
bool isNotes(int descriptor) { return ::fcntl(descriptor, F_GET_SEALS) >= 0; }

}  // namespace

ChildNotes::ChildNotes() {
  const FileDescriptor made(::memfd_create("sorrel-notes", MFD_CLOEXEC));
  // This process may have closed its standard streams, whose numbers the child fills.
  if (made.isOpen()) file_ = FileDescriptor(::fcntl(made.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

std::string ChildNotes::text() const {
  std::string text(kMostBytes, '\0');
  std::size_t length = 0;
  while (length < text.size()) {
    const ssize_t count =
        ::pread(file_.get(), text.data() + length, text.size() - length, static_cast<off_t>(length));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    length += static_cast<std::size_t>(count);
  }
  text.resize(length);
  return text;
}

bool ChildNotes::leave(std::string_view text) {
  const char* const value = std::getenv(kNotesVariable);
  if (value == nullptr) return false;
  const std::string_view digits(value);
  int descriptor = -1;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), descriptor);
  if (error != std::errc() || end != digits.data() + digits.size()) return false;
  return isNotes(descriptor) && writeAll(descriptor, text);
}

}  // namespace sorrel
