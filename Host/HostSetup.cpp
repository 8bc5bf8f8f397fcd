#include "Host/HostSetup.hpp"

#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "Host/CommandError.hpp"
#include "Host/Invocation.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"

namespace sorrel::cli {
namespace {

namespace fs = std::filesystem;

bool isFolder(const fs::path& path) {
  std::error_code error;
  return fs::is_directory(path, error);
}

[[noreturn]] void wrongUse(const std::string& message) { throw CommandError(ExitStatus::WrongUse, message); }

/// The parent of the folder that contains the program: /usr for /usr/bin/sorrel, the build folder for a
/// program that is not installed.
fs::path installation() {
  std::error_code error;
  const fs::path program = fs::read_symlink("/proc/self/exe", error);
  return program.parent_path().parent_path();
}

Host::MainBundle bundle(const GlobalOptions& options, const char* layout) {
  const fs::path resources = installation() / "share/sorrel/Catalogue" / layout;
  return {options.bundleID, resources.string(), {{"CFBundleShortVersionString", SORREL_VERSION}}};
}

/// An absolute path without a trailing slash; "" for the machine's own root.
std::string volumeRoot(const std::string& volume) {
  std::error_code error;
  fs::path root = fs::absolute(volume, error);
  // "a/.." may lead elsewhere than the text suggests, if "a" is a link.
  const bool stepsUp = volume.find("..") != std::string::npos;
  root = stepsUp ? fs::canonical(root, error) : root.lexically_normal();
  if (error || !isFolder(root)) wrongUse("the volume '" + volume + "' is no folder");
  std::string text = root.string();
  while (text.ends_with('/')) text.pop_back();
  return text;
}

bool hasHome(const std::string& root, const std::string& user) {
  return Host::macVolume(root, user, {}).hasHome();
}

/// The user of a volume with a single home; "" if there is none, or several.
std::string onlyUser(const std::string& root) {
  std::string only;
  std::error_code error;
  const std::string homes = Host::macVolume(root, "", {}).homesFolder();
  for (fs::directory_iterator at(homes, error), end; !error && at != end; at.increment(error)) {
    const std::string name = at->path().filename().string();
    if (name == "Shared" || !hasHome(root, name)) continue;
    if (!only.empty()) return "";
    only = name;
  }
  return only;
}

std::string volumeUser(const GlobalOptions& options, const std::string& root) {
  std::string user = options.user;
  if (user.empty()) user = onlyUser(root);
  if (user.empty()) user = Host::linuxDesktop({}).userName();
  const bool isName = user != "." && user != ".." && user.find('/') == std::string::npos;
  if (!isName || !hasHome(root, user)) {
    wrongUse("the volume '" + options.volume + "' has no home for '" + user + "'; choose one with --user");
  }
  return user;
}

Host host(const GlobalOptions& options) {
  if (!options.volume.empty()) {
    const std::string root = volumeRoot(options.volume);
    return Host::macVolume(root, volumeUser(options, root), bundle(options, "macOS"));
  }
  Host desktop = Host::linuxDesktop(bundle(options, "Linux"));
  if (!options.user.empty() && options.user != desktop.userName()) {
    wrongUse("--user chooses a home on a volume; on this machine only '" + desktop.userName() +
             "' can be scanned");
  }
  return desktop;
}

std::string toolFolder(const GlobalOptions& options) {
  if (options.toolFolder.empty()) {
    const fs::path own = installation() / "libexec/sorrel";
    return isFolder(own) ? own.string() : "";
  }
  std::error_code error;  // a relative folder has no absolute path once the current folder is gone
  const fs::path folder = fs::absolute(options.toolFolder, error).lexically_normal();
  if (error || !isFolder(folder)) wrongUse("the tool folder '" + options.toolFolder + "' is no folder");
  return folder.string();
}

}  // namespace

void installHost(const GlobalOptions& options) {
  Host chosen = host(options);
  chosen.setToolFolder(toolFolder(options));
  Host::install(std::move(chosen));
}

std::string bundledInstaller() {
  const bool isDesktop = Host::current().layout() == Host::Layout::LinuxDesktop;
  return isDesktop ? (installation() / "libexec/sorrel/install-helper").string() : "";
}

std::optional<std::string> chosenCatalogue(const GlobalOptions& options) {
  if (options.catalogue.empty()) return std::nullopt;
  return options.catalogue;
}

}  // namespace sorrel::cli
