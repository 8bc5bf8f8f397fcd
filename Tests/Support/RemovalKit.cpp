#include "Tests/Support/RemovalKit.hpp"

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cstddef>
#include <vector>

#include "Tests/Support/ForkedChild.hpp"

namespace sorrel::test {
namespace {

bool install(std::vector<sock_filter>& filter) {
  const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

}  // namespace

bool isThere(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

std::string textOf(const RemovalResult& result) {
  return std::to_string(result.error) + (result.isRefused ? " refused" : "") +
         (result.isAbsent ? " absent" : "");
}

ItemNumber numberOf(const std::string& path) {
  const auto identity = identityOf(AT_FDCWD, path.c_str());
  EXPECT_TRUE(identity.has_value()) << path;
  return identity.value_or(ItemIdentity{}).number;
}

bool raiseFence() {
  std::vector<sock_filter> filter = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  const std::vector<unsigned> forbidden = {
      SYS_unlinkat, SYS_renameat2,
#ifdef SYS_unlink
      SYS_unlink,   SYS_rmdir,     SYS_rename, SYS_renameat,
#endif
  };
  for (const unsigned call : forbidden) {
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS));
  }
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  return install(filter);
}

bool takeAwayOpenat2(int error) {
  std::vector<sock_filter> filter = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(error)),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  return install(filter);
}

std::string RemovalStage::behindFence(const std::string& path) const {
  return inChild([&] { return raiseFence() ? textOf(removeItem(path, policy_)) : "no fence"; });
}

}  // namespace sorrel::test
