#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

namespace sorrel::bench {

/// The resources that a program used.
struct ChildRun {
  double seconds = 0;
  double processor = 0;  ///< seconds of all its threads, in user and in system mode
  double peakKiB = 0;    ///< resident
  bool isDone = false;   ///< it exited by itself, with status 0
};

/// Runs a program, found in PATH, with its standard output in `output`.
inline ChildRun runChild(std::vector<std::string> words, const std::string& output) {
  std::vector<char*> list;
  list.reserve(words.size() + 1);
  for (std::string& word : words) list.push_back(word.data());
  list.push_back(nullptr);
  const auto start = std::chrono::steady_clock::now();
  const pid_t child = ::fork();
  if (child == 0) {
    const int out = ::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int none = ::open("/dev/null", O_RDWR);
    ::dup2(none, STDIN_FILENO);
    ::dup2(out, STDOUT_FILENO);
    ::dup2(none, STDERR_FILENO);
    ::execvp(list[0], list.data());
    ::_exit(127);
  }
  int state = 0;
  rusage usage{};
  ::wait4(child, &state, 0, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return {std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(),
          seconds(usage.ru_utime) + seconds(usage.ru_stime), static_cast<double>(usage.ru_maxrss),
          WIFEXITED(state) && WEXITSTATUS(state) == 0};
}

}  // namespace sorrel::bench
