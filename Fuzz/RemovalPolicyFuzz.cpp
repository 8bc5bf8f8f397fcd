// Any path against the policy of removals: a permitted removal never affects a protected item, its contents
// or its ancestors, through any links and spellings. A model based only on texts and realpath(3) determines
// the protected paths. Nothing is removed.
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "Fuzz/Require.hpp"
#include "SorrelFramework/Removal/RemovalTarget.hpp"

using namespace sorrel;
using sorrel::fuzz::require;

namespace {

namespace fs = std::filesystem;

/// "" if the path does not exist.
std::string real(const std::string& path) {
  std::array<char, PATH_MAX> buffer{};
  return ::realpath(path.c_str(), buffer.data()) != nullptr ? std::string(buffer.data()) : std::string();
}

bool isIn(const std::string& path, const std::string& place) {
  return place == "/" || path == place || path.starts_with(place + "/");
}

/// A few folders and links of the fuzz target's own.
class Scratch {
 public:
  Scratch() {
    std::string pattern = (fs::canonical(fs::temp_directory_path()) / "sorrel-fuzz-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    root_ = pattern;
    for (const char* folder : {"kept/open/shut/x", "kept/x", "home/x", "free/a/b"}) {
      fs::create_directories(path(folder));
    }
    for (const char* file : {"kept/open/f", "kept/f", "home/f", "free/f", "f"})
      std::ofstream(path(file)) << 'x';
    const std::vector<std::pair<std::string, std::string>> links = {
        {"free/kept", "../kept"},    {"free/root", "/"},
        {"free/up", ".."},           {"free/etc", "/etc"},
        {"kept/free", "../free"},    {"free/loop", "loop"},
        {"free/none", "missing"},    {"free/deep", "up/kept/open"},
        {"free/home", path("home")}, {"free/self", "/proc/self/root"}};
    for (const auto& [link, target] : links) fs::create_symlink(target, path(link));
  }
  ~Scratch() { fs::remove_all(root_); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  [[nodiscard]] std::string path(const std::string& name) const { return root_ + "/" + name; }
  [[nodiscard]] const std::string& root() const { return root_; }

 private:
  std::string root_;
};

/// The rules in terms of texts.
class Model {
 public:
  explicit Model(const Scratch& scratch) {
    selves_ = {"/",
               "/home",
               "/root",
               "/var",
               "/opt",
               "/srv",
               "/mnt",
               "/media",
               "/tmp",
               "/var/tmp",
               "/var/log",
               "/var/spool",
               "/var/cache",
               "/var/mail",
               fs::current_path().string(),
               scratch.path("home")};
    subtrees_ = {"/usr",
                 "/etc",
                 "/boot",
                 "/bin",
                 "/lib",
                 "/lib32",
                 "/lib64",
                 "/libx32",
                 "/sbin",
                 "/proc",
                 "/sys",
                 "/dev",
                 "/run",
                 "/var/lib",
                 "/efi",
                 "/nix",
                 "/gnu",
                 "/sysroot",
                 "/ostree",
                 "/snap",
                 "/var/spool/cron",
                 scratch.path("kept"),
                 scratch.path("kept/open/shut")};
    exceptions_ = {"/run/media", "/usr/local", "/var", "/home", scratch.path("kept/open")};
    while (const passwd* user = ::getpwent()) selves_.emplace_back(user->pw_dir);
    ::endpwent();
  }

  [[nodiscard]] static bool isNormal(const std::string& path) {
    if (path.size() < 2 || path.size() > 1048576 || path.find('\0') != std::string::npos) return false;
    const std::string framed = path + "/";
    for (const char* never : {"//", "/./", "/../"}) {
      if (framed.find(never) != std::string::npos) return false;
    }
    return path.front() == '/';
  }

  /// `item` lies in the real folder `folder`.
  [[nodiscard]] bool protects(const std::string& folder, const std::string& item) const {
    if (folder == "/") return true;
    std::size_t subtree = longest(subtrees_, folder);
    if (subtree > 0 && subtree >= longest(exceptions_, folder)) return true;
    for (const auto* list : {&selves_, &subtrees_, &exceptions_}) {
      for (const std::string& place : *list) {
        const std::string target = real(place);
        if (!target.empty() && (isIn(place, item) || isIn(target, item))) return true;
      }
    }
    return false;
  }

 private:
  /// Length of the deepest path of the list that contains `folder`; 0 if none does.
  static std::size_t longest(const std::vector<std::string>& list, const std::string& folder) {
    std::size_t length = 0;
    for (const std::string& place : list) {
      const std::string target = real(place);
      if (!target.empty() && isIn(folder, target)) length = std::max(length, target.size());
    }
    return length;
  }

  std::vector<std::string> selves_;
  std::vector<std::string> subtrees_;
  std::vector<std::string> exceptions_;
};

/// Bytes below 32 stand for whole names, so that few bytes make an existing path.
std::string pathOf(std::string_view bytes, const std::string& root) {
  static const std::array<std::string, 32> kWords = {
      "/",    "..", ".",     "//",    "usr",  "etc", "kept", "open", "shut", "free",  "home",
      "f",    "x",  "a",     "b",     "root", "up",  "loop", "none", "deep", "self",  "bin",
      "proc", "1",  "local", "media", "var",  "lib", "run",  "dev",  "tmp",  "/free/"};
  std::string path;
  if (!bytes.empty()) {
    if ((bytes.front() & 1) != 0) path = root + "/";
    bytes.remove_prefix(1);
  }
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    if (value < kWords.size() && !path.empty() && value % 2 == 0 && path.back() != '/') path += '/';
    path += value < kWords.size() ? kWords[value] : std::string(1, byte == ' ' ? '\0' : byte);
  }
  return path;
}

void check(const std::string& path, const Scratch& scratch, const Model& model, const RemovalPolicy& policy) {
  const RemovalTarget target = RemovalTarget::find(path, policy);
  require(target.error() != 0 || !target.isRefused(), "what is refused has an error");
  require(RemovalPolicy::isNormalPath(path) == Model::isNormal(path), "both call the same paths normal");
  if (!Model::isNormal(path)) return require(target.isRefused(), "a path that is not normal is refused");
  const std::size_t slash = path.rfind('/');
  const std::string folder = real(slash == 0 ? "/" : path.substr(0, slash));
  const std::string item = (folder == "/" ? "" : folder) + path.substr(slash);
  struct stat status {};
  const bool isThere = !folder.empty() && ::lstat(item.c_str(), &status) == 0;
  if (target.error() == 0) {
    require(isThere, "what is found is there");
    require(!model.protects(folder, item), "nothing that is protected is let go");
    require(target.identity().number == ItemNumber{status.st_dev, status.st_ino}, "the item is the real one");
  } else if (isThere && isIn(folder, scratch.root()) && path.find("/self/") == std::string::npos) {
    require(model.protects(folder, item), "nothing else is refused");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Scratch scratch;
  static const Model model(scratch);
  static const RemovalPolicy policy = [] {
    RemovalPolicy made = RemovalPolicy::forUser();
    made.protectSubtree(scratch.path("kept"));
    made.allowSubtree(scratch.path("kept/open"));
    made.protectSubtree(scratch.path("kept/open/shut"));
    made.protectSelfAndAncestors(scratch.path("home"));
    return made;
  }();
  check(pathOf(fuzz::textOf(data, size), scratch.root()), scratch, model, policy);
  return 0;
}
