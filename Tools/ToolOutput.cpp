#include "Tools/ToolOutput.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "SorrelFramework/Platform/Text/Text.hpp"

namespace sorrel::tools {

ToolOutput::ToolOutput() {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    // open(2) returns the lowest free number, which is this one. Nothing can be written to it.
    if (::fcntl(stream, F_GETFD) < 0 && ::open("/dev/null", O_RDONLY) != stream) lost_ = true;
  }
}

bool ToolOutput::fits(std::string_view line) {
  return line.size() < PIPE_BUF && line.find('\n') == std::string_view::npos && isValidUTF8(line);
}

void ToolOutput::addLine(std::string_view line) { addText(std::string(line) + '\n'); }

void ToolOutput::addText(std::string_view text) {
  if (block_.size() + text.size() > PIPE_BUF) flush();
  block_.append(text);
}

bool ToolOutput::finish() {
  flush();
  return !lost_;
}

void ToolOutput::flush() {
  std::string_view rest = block_;
  while (!rest.empty() && !lost_) {
    const ssize_t written = ::write(STDOUT_FILENO, rest.data(), rest.size());
    if (written >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      lost_ = true;
    }
  }
  block_.clear();
}

}  // namespace sorrel::tools
