#include "Host/OpenFiles.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>

namespace sorrel::cli {
namespace {

/// Restores the limit of the process.
class OpenFiles : public testing::Test {
 protected:
  OpenFiles() { EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &before_), 0); }
  ~OpenFiles() override { EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &before_), 0); }

  [[nodiscard]] rlim_t softLimitAfter(rlim_t soft) const {
    rlimit limit{soft, before_.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    raiseOpenFileLimit();
    EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(limit.rlim_max, before_.rlim_max);
    return limit.rlim_cur;
  }

  rlimit before_{};
};

TEST_F(OpenFiles, softLimitIsRaisedAsFarAsTheProcessMay) {
  EXPECT_EQ(softLimitAfter(64), std::min<rlim_t>(before_.rlim_max, 8192));
}

TEST_F(OpenFiles, softLimitThatIsHigherStays) {
  if (before_.rlim_max < 10000) GTEST_SKIP() << "the hard limit is lower than that";
  EXPECT_EQ(softLimitAfter(10000), 10000U);
}

}  // namespace
}  // namespace sorrel::cli
