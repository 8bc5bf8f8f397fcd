#include "Helper/Confinement.hpp"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>

namespace sorrel::helper {
namespace {

constexpr std::uint32_t kNeeded =
    1U << CAP_DAC_OVERRIDE | 1U << CAP_DAC_READ_SEARCH | 1U << CAP_FOWNER;  // all in the first word

bool isNeeded(int capability) { return capability < 32 && (kNeeded >> capability & 1U) != 0; }

/// Limits the capabilities of programs that this process starts.
bool boundCapabilities() {
  // The kernel may know more capabilities than the header that this was compiled with.
  for (int capability = 0;; ++capability) {
    const int has = ::prctl(PR_CAPBSET_READ, capability);
    if (has < 0) return errno == EINVAL && capability > CAP_FOWNER;
    if (has == 1 && !isNeeded(capability) && ::prctl(PR_CAPBSET_DROP, capability) != 0) return false;
  }
}

bool dropCapabilities() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
  if (::syscall(SYS_capget, &header, sets.data()) != 0) return false;
  const std::uint32_t kept = sets[0].permitted & kNeeded;
  sets = {};
  sets[0].permitted = sets[0].effective = kept;
  if (::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0) != 0) return false;
  return ::syscall(SYS_capset, &header, sets.data()) == 0;
}

bool limitDescriptors() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return false;
  limit.rlim_max = std::min<rlim_t>(limit.rlim_max, kMostDescriptors);
  limit.rlim_cur = limit.rlim_max;
  return ::setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

}  // namespace

bool confineProcess() {
  return limitDescriptors() && boundCapabilities() && dropCapabilities() &&
         ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
}

}  // namespace sorrel::helper
