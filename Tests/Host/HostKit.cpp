#include "Tests/Host/HostKit.hpp"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <TestPlaces.hpp>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace sorrel::hosttests {
namespace {

namespace fs = std::filesystem;

std::vector<char*> pointers(std::vector<std::string>& words) {
  std::vector<char*> list;
  list.reserve(words.size() + 1);
  for (std::string& word : words) list.push_back(word.data());
  list.push_back(nullptr);
  return list;
}

void makePendingInterrupt() {
  ::signal(SIGINT, SIG_DFL);
  sigset_t interrupt;
  sigemptyset(&interrupt);
  sigaddset(&interrupt, SIGINT);
  ::sigprocmask(SIG_BLOCK, &interrupt, nullptr);
  ::raise(SIGINT);
}

bool enterGoneFolder() {
  std::string name = fs::temp_directory_path().string() + "/sorrel-gone.XXXXXX";
  return ::mkdtemp(name.data()) != nullptr && ::chdir(name.c_str()) == 0 && ::rmdir(name.c_str()) == 0;
}

void limitFiles(std::uint64_t files) {
  const rlimit limit{files, files};
  if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) ::_exit(126);
}

void takeRightsOf(unsigned user) {
  const gid_t group = user;
  if (::setgroups(1, &group) != 0 || ::setgid(group) != 0 || ::setuid(user) != 0) ::_exit(126);
}

[[noreturn]] void execute(const std::vector<char*>& words, const std::vector<char*>& environment,
                          const std::string& out, const std::string& err, const RunOptions& options) {
  const int input = ::open(options.input.c_str(), O_RDONLY | O_NOCTTY);
  const int output = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  const int errors = ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (input < 0 || output < 0 || errors < 0 || ::chdir(options.folder.c_str()) != 0) ::_exit(126);
  ::dup2(input, STDIN_FILENO);
  ::dup2(output, STDOUT_FILENO);
  ::dup2(errors, STDERR_FILENO);
  for (const int file : {input, output, errors}) {
    if (file > STDERR_FILENO) ::close(file);
  }
  if (options.inGoneFolder && !enterGoneFolder()) ::_exit(126);
  if (options.interrupted) makePendingInterrupt();
  if (options.files != 0) limitFiles(options.files);
  for (const int stream : options.closed) ::close(stream);
  if (options.user != 0) takeRightsOf(options.user);
  ::execve(words[0], words.data(), environment.data());
  ::_exit(127);
}

std::vector<std::string> environmentOf(const RunOptions& options) {
  std::vector<std::string> variables = options.environment;
  // Options of a sanitizer must reach the program too.
  for (const char* const name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS"}) {
    if (const char* const value = std::getenv(name)) variables.push_back(std::string(name) + "=" + value);
  }
  return variables;
}

std::string entryLine(const fs::path& path) {
  struct stat entry {};
  ::lstat(path.c_str(), &entry);
  std::string line = path.string();
  for (const auto number :
       {static_cast<std::int64_t>(entry.st_mode), static_cast<std::int64_t>(entry.st_uid),
        static_cast<std::int64_t>(entry.st_nlink), static_cast<std::int64_t>(entry.st_size),
        static_cast<std::int64_t>(entry.st_mtim.tv_sec), static_cast<std::int64_t>(entry.st_mtim.tv_nsec),
        static_cast<std::int64_t>(entry.st_ctim.tv_sec), static_cast<std::int64_t>(entry.st_ctim.tv_nsec)}) {
    line += " " + std::to_string(number);
  }
  if (S_ISREG(entry.st_mode)) line += " " + contentOf(path.string());
  return line;
}

std::string categoryText(const CategoryRow& row) {
  std::string text = "<dict><key>finder</key><integer>" + std::to_string(row.finderID) +
                     "</integer><key>status</key><integer>" + std::to_string(row.status) +
                     "</integer><key>title</key><string>Row " + std::to_string(row.finderID) +
                     "</string><key>image</key><string></string><key>description</key><string>About row " +
                     std::to_string(row.finderID) + "</string><key>type</key><string>" + row.type +
                     "</string><key>urls</key><array>";
  for (const std::string& url : row.urls) text += "<dict><key>url</key><string>" + url + "</string></dict>";
  return text + "</array></dict>";
}

ProgramRun runOnTerminal(const std::vector<std::string>& arguments, RunOptions options, bool isInput,
                         const Typist& typist) {
  const TemporaryFolder outputs;
  std::vector<std::string> words = {options.program.empty() ? SORREL_PROGRAM : options.program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<std::string> variables = environmentOf(options);
  const std::vector<char*> argv = pointers(words);
  const std::vector<char*> envp = pointers(variables);
  const std::string out = outputs.path("out");

  const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (terminal < 0 || ::grantpt(terminal) != 0 || ::unlockpt(terminal) != 0) return {};
  const std::string screen = ::ptsname(terminal);
  if (isInput) options.input = screen;
  const pid_t child = ::fork();
  if (child == 0) execute(argv, envp, out, screen, options);
  ProgramRun run;
  // Reading fails once the program, the last holder of the other end, is gone; and also before it has opened
  // that end.
  int state = 0;
  for (bool ended = false; !ended;) {
    ended = ::waitpid(child, &state, WNOHANG) == child;
    pollfd readable = {terminal, POLLIN, 0};
    std::array<char, 4096> bytes{};
    while (::poll(&readable, 1, 10) > 0) {
      const ssize_t count = ::read(terminal, bytes.data(), bytes.size());
      if (count <= 0) break;
      run.err.append(bytes.data(), static_cast<std::size_t>(count));
      const std::string typed = typist ? typist(run.err, child) : "";
      if (typed.empty()) continue;
      EXPECT_EQ(::write(terminal, typed.data(), typed.size()), std::ssize(typed));
    }
  }
  ::close(terminal);
  run.status = WIFEXITED(state) ? WEXITSTATUS(state) : 128 + WTERMSIG(state);
  run.out = contentOf(out);
  return run;
}

}  // namespace

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

TemporaryFolder::TemporaryFolder() {
  std::string name = fs::canonical(fs::temp_directory_path()).string() + "/sorrel-host.XXXXXX";
  if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
  path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code error;
  fs::remove_all(path_, error);
}

std::string TemporaryFolder::file(std::string_view relative, std::size_t size) const {
  return text(relative, std::string(size, 'x'));
}

std::string TemporaryFolder::text(std::string_view relative, std::string_view content) const {
  const fs::path place = path(relative);
  fs::create_directories(place.parent_path());
  std::ofstream(place, std::ios::binary) << content;
  return place.string();
}

std::string TemporaryFolder::folder(std::string_view relative) const {
  fs::create_directories(path(relative));
  return path(relative);
}

Json ProgramRun::document() const {
  Json document = Json::parse(out, nullptr, false);
  EXPECT_FALSE(document.is_discarded()) << "status " << status << "\nout: " << out << "\nerr: " << err;
  return document;
}

ProgramRun sorrel(const std::vector<std::string>& arguments, const RunOptions& options) {
  const TemporaryFolder outputs;
  std::vector<std::string> words = {options.program.empty() ? SORREL_PROGRAM : options.program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<std::string> variables = environmentOf(options);
  const std::vector<char*> argv = pointers(words);
  const std::vector<char*> envp = pointers(variables);
  const std::string out = outputs.path("out");
  const std::string err = outputs.path("err");

  const pid_t child = ::fork();
  if (child == 0) execute(argv, envp, options.output.empty() ? out : options.output, err, options);
  if (options.meanwhile) options.meanwhile(child);
  int state = 0;
  ::waitpid(child, &state, 0);
  return {WIFEXITED(state) ? WEXITSTATUS(state) : 128 + WTERMSIG(state), contentOf(out), contentOf(err)};
}

ProgramRun sorrelOnTerminal(const std::vector<std::string>& arguments, const RunOptions& options) {
  return runOnTerminal(arguments, options, false, {});
}

ProgramRun sorrelAtTerminal(const std::vector<std::string>& arguments, const Typist& typist,
                            RunOptions options) {
  return runOnTerminal(arguments, std::move(options), true, typist);
}

std::string catalogue(const std::vector<FeatureRow>& features) {
  std::string text =
      "<plist version=\"1.0\"><dict><key>Only</key><dict><key>finder</key><integer>1</integer>"
      "<key>title</key><string>Cleaner</string><key>image</key><string></string>"
      "<key>description</key><string>Cleans</string><key>version</key><string>1.0</string>"
      "<key>type</key><string>Main</string><key>module</key><array>";
  for (const FeatureRow& feature : features) {
    text += "<dict><key>finder</key><integer>" + std::to_string(feature.finderID) +
            "</integer><key>status</key><integer>" + std::to_string(feature.status) +
            "</integer><key>image</key><string></string>"
            "<key>title</key><string>Feature " +
            std::to_string(feature.finderID) +
            "</string><key>description</key><string>About it</string><key>category</key><array>";
    for (const CategoryRow& row : feature.categories) text += categoryText(row);
    text += "</array></dict>";
  }
  return text + "</array></dict></dict></plist>";
}

std::vector<std::string> snapshot(const std::string& folder) {
  std::vector<std::string> lines;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) lines.push_back(entryLine(entry.path()));
  std::ranges::sort(lines);
  return lines;
}

}  // namespace sorrel::hosttests
