#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace sorrel {

class ChildNotes;

/// The variable that passes the root of the macOS volume that this process works on to a child; see
/// ChildProcess.
inline constexpr const char* kVolumeVariable = "SORREL_VOLUME";

/// Limits for a child process's output and for the waiting times.
struct ChildLimits {
  /// Bytes of output. A child that prints more gets SIGINT; the rest of its output is discarded.
  std::size_t output = std::size_t{256} << 20;
  /// Time until SIGKILL for a child that continues after that.
  std::chrono::milliseconds killAfter{5'000};
  /// How long the output of an ended child is read when a process that it left behind keeps it open. Output
  /// of the child itself is read in any case.
  std::chrono::milliseconds drain{1'000};
};

/// A program that runs as a child of this process: started by its path, without a shell and without a search
/// in PATH, its standard input empty, its standard output read here, its standard error that of this process.
/// It gets a session of its own and dies with this process. Its environment contains PATH, LANG=C.UTF-8, and
/// HOME, USER, TMPDIR, the XDG folders and the address of the session bus where this process has them, and
/// SORREL_VOLUME, the root of the macOS volume of Host::current(), if that is a mounted one, and
/// SORREL_NOTES, the number of the inherited descriptor of its notes, if this process requested any; no other
/// variable, so that no setting of the user's shell changes the output of a system tool.
class ChildProcess {
 public:
  /// How the child ended: the status if it exited by itself, otherwise the number of the signal that ended
  /// it.
  struct Ending {
    int exitStatus = -1;
    int signal = 0;
    bool outputCut = false;  ///< it printed more than ChildLimits::output
  };
  /// Gets the next piece of output, on the thread of run(). False interrupts the child, whose output is read
  /// on until its end.
  using OutputHandler = std::function<bool(std::string_view)>;

  /// Starts the program at the absolute path `path`; `arguments` do not include its name. A text with a zero
  /// byte in it starts nothing. `notes` may be null.
  ChildProcess(const std::string& path, const std::vector<std::string>& arguments, ChildLimits limits = {},
               const ChildNotes* notes = nullptr);
  /// Kills a child that was never waited for.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// 0, or the errno that kept the program from starting.
  [[nodiscard]] int startError() const { return startError_; }

  /// Reads the output and returns when the child has ended and all output was passed on. Blocks as long as
  /// the child lives. To be called once, on the thread that made the child; a child that did not start ends
  /// at once.
  Ending run(const OutputHandler& onOutput);

  /// Sends SIGINT to the child; no effect once it has ended. Any thread.
  void interrupt();

  /// Sends SIGKILL to the child and the processes of its group; output printed by the child is still read. No
  /// effect once the child has ended. Any thread.
  void kill();

 private:
  struct Reading;

  [[nodiscard]] int launch(const std::string& path, const std::vector<std::string>& arguments, int notes);
  void readSome(Reading& reading, const OutputHandler& onOutput);
  void keepLimits(Reading& reading);
  void sendSignal(int signal);
  [[nodiscard]] bool hasEnded() const;
  Ending reap();

  ChildLimits limits_;
  int startError_ = 0;
  int output_ = -1;
  std::mutex mutex_;  // ensures that a signal never goes to a reused process id
  pid_t pid_ = 0;
};

}  // namespace sorrel
