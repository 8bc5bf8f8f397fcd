#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace sorrel::hosttests {

using Json = nlohmann::ordered_json;

/// A folder of its own below the temporary folder, removed at the end.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  /// Absolute, without links, without a trailing slash.
  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] std::string path(std::string_view relative) const {
    return path_ + "/" + std::string(relative);
  }

  /// Makes a file of `size` bytes, or with `content`, and the folders above it. Returns its absolute path.
  std::string file(std::string_view relative, std::size_t size) const;
  std::string text(std::string_view relative, std::string_view content) const;
  std::string folder(std::string_view relative) const;

 private:
  std::string path_;
};

/// The results of a run of sorrel.
struct ProgramRun {
  int status = -1;  ///< exit status; 128 + the number of the signal that ended it
  std::string out;
  std::string err;

  /// The document on standard output; a failed expectation if there is anything else.
  [[nodiscard]] Json document() const;
};

struct RunOptions {
  std::vector<std::string> environment = {"HOME=/nonexistent"};  ///< the complete environment
  bool interrupted = false;         ///< SIGINT is pending, and blocked, when the program starts
  std::string output = {};          ///< a file that standard output goes to instead of ProgramRun::out
  std::vector<int> closed = {};     ///< standard streams to close
  std::uint64_t files = 0;          ///< how many the program may have open at once, if not 0
  bool inGoneFolder = false;        ///< the current folder is one that was removed
  std::string folder = "/";         ///< the current folder
  unsigned user = 0;                ///< the user to run as, if not 0; needs root
  std::string input = "/dev/null";  ///< standard input
  std::string program = {};         ///< another copy of the program
  std::function<void(int process)> meanwhile = {};  ///< runs while the program does
};

/// Runs the program from the build, with standard input from /dev/null.
ProgramRun sorrel(const std::vector<std::string>& arguments, const RunOptions& options = {});

/// Runs it with a terminal as its standard error; `err` is the terminal's output.
ProgramRun sorrelOnTerminal(const std::vector<std::string>& arguments, const RunOptions& options = {});

/// Gets the current content of the screen after each change, and the process; types the text that it returns.
using Typist = std::function<std::string(const std::string& screen, int process)>;
/// The same with the terminal as its standard input too.
ProgramRun sorrelAtTerminal(const std::vector<std::string>& arguments, const Typist& typist,
                            RunOptions options = {});

/// A catalogue with one module of number 1.
struct CategoryRow {
  std::int64_t finderID = 0;
  std::string type = "SystemCache";
  std::vector<std::string> urls;
  std::int64_t status = 0;  ///< ticked, 1, or not
};
struct FeatureRow {
  std::int64_t finderID = 1;
  std::vector<CategoryRow> categories;
  std::int64_t status = 0;
};
std::string catalogue(const std::vector<FeatureRow>& features);

/// All bytes of a file; "" if it does not exist.
std::string contentOf(const std::string& path);

/// One line for each entry below `folder`: path, type, mode, owner, size, times of change, content of files.
std::vector<std::string> snapshot(const std::string& folder);

}  // namespace sorrel::hosttests
