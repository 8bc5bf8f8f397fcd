#include "Tests/Support/ForkedChild.hpp"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string_view>
#include <utility>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::test {
namespace {

constexpr unsigned kMostSeconds = 60;

[[noreturn]] void runChild(int out, const std::function<std::string()>& work) {
  ::alarm(kMostSeconds);
  const std::string text = work();
  std::string_view rest = text;
  while (!rest.empty()) {
    const ssize_t written = ::write(out, rest.data(), rest.size());
    if (written <= 0) ::_exit(1);
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
  // Destructors of the parent's objects must not run twice.
  ::_exit(0);
}

std::string readAll(int in) {
  std::string text;
  std::array<char, 4096> buffer{};
  for (ssize_t got = 0; (got = ::read(in, buffer.data(), buffer.size())) > 0;) {
    text.append(buffer.data(), static_cast<std::size_t>(got));
  }
  return text;
}

bool dropPrivileges() {
  return ::geteuid() != 0 ||
         (::setgroups(0, nullptr) == 0 && ::setresgid(kPlainUser, kPlainUser, kPlainUser) == 0 &&
          ::setresuid(kPlainUser, kPlainUser, kPlainUser) == 0);
}

bool leaveMountTable() {
  return ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

}  // namespace

bool canBeOtherUsers() {
  if (::geteuid() != 0) return false;
  std::ifstream users("/proc/self/uid_map");
  for (std::uint64_t first = 0, outside = 0, count = 0; users >> first >> outside >> count;) {
    if (kPlainUser >= first && kPlainUser - first < count) return true;
  }
  return false;
}

std::string inChild(const std::function<std::string()>& work) {
  std::array<int, 2> ends{-1, -1};
  EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  const FileDescriptor in(ends[0]);
  FileDescriptor out(ends[1]);
  const pid_t child = ::fork();
  if (child == 0) runChild(out.get(), work);
  EXPECT_GT(child, 0);
  out.reset();
  std::string text = readAll(in.get());
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  if (WIFSIGNALED(status)) return "ended by signal " + std::to_string(WTERMSIG(status));
  if (WEXITSTATUS(status) != 0) return "ended with status " + std::to_string(WEXITSTATUS(status));
  return text;
}

std::string inPlainChild(const std::function<std::string()>& work) {
  return inChild([&work] { return dropPrivileges() ? work() : std::string("still privileged"); });
}

std::string inMountingChild(const std::function<std::string()>& work) {
  return inChild([&work] { return leaveMountTable() ? work() : std::string("skip"); });
}

std::string inMemoryChild(const std::function<std::string()>& work) {
  const TemporaryFolder folder;
  std::string told = inMountingChild([&]() -> std::string {
    if (::mount("tmpfs", folder.path().c_str(), "tmpfs", 0, nullptr) != 0) return "skip";
    ::setenv("TMPDIR", folder.path().c_str(), 1);
    return work();
  });
  if (told != "skip") return told;
  return inChild([&] {
    // Root may remove nothing there.
    if (::geteuid() != 0 && ::access("/dev/shm", W_OK) == 0) ::setenv("TMPDIR", "/dev/shm", 1);
    return work();
  });
}

}  // namespace sorrel::test
