#include "Host/OpenFiles.hpp"

#include <sys/resource.h>

#include <algorithm>

namespace sorrel::cli {
namespace {

/// A higher limit would be of no use, and child processes inherit it: some close every number up to the
/// limit.
constexpr rlim_t kEnough = 8192;

}  // namespace

void raiseOpenFileLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  const rlim_t wanted = std::min(limit.rlim_max, kEnough);
  if (limit.rlim_cur >= wanted) return;
  limit.rlim_cur = wanted;
  static_cast<void>(::setrlimit(RLIMIT_NOFILE, &limit));
}

}  // namespace sorrel::cli
