#include "SorrelFramework/Platform/Base/Fatal.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

namespace sorrel {
namespace {

/// Each death test in a process of its own: a forked copy of a process with threads may hang.
class Fatal : public testing::Test {
 protected:
  Fatal() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(Fatal, writesTheReasonAndAborts) {
  EXPECT_EXIT(fatalStop("the reason"), testing::KilledBySignal(SIGABRT), "^the reason\n$");
}

TEST_F(Fatal, writesTheContextOnALineOfItsOwn) {
  EXPECT_EXIT(fatalStop(kUnexpectedNil, "Feature.plist"), testing::KilledBySignal(SIGABRT),
              "^Unexpectedly found nil while unwrapping an Optional value\n  Feature.plist\n$");
}

TEST_F(Fatal, textCannotCommandTheTerminal) {
  EXPECT_EXIT(fatalStop("a\x1b[31m", "b\n\x7f\xc2\x9b"), testing::KilledBySignal(SIGABRT),
              "^a\\\\x1b\\[31m\n  b\\\\x0a\\\\x7f\\\\xc2\\\\x9b\n$");
}

TEST_F(Fatal, handlerEndsTheProcessAfterTheText) {
  const auto stop = [] {
    setFatalHandler([] { ::_exit(3); });
    fatalStop("broken catalogue");
  };
  EXPECT_EXIT(stop(), testing::ExitedWithCode(3), "^broken catalogue\n$");
}

TEST_F(Fatal, handlerThatReturnsIsFollowedByAnAbort) {
  const auto stop = [] {
    setFatalHandler([] {});
    fatalStop("broken catalogue");
  };
  EXPECT_EXIT(stop(), testing::KilledBySignal(SIGABRT), "broken catalogue");
}

TEST_F(Fatal, noHandlerMeansAbortAgain) {
  const auto stop = [] {
    setFatalHandler([] { ::_exit(3); });
    setFatalHandler(nullptr);
    fatalStop("broken catalogue");
  };
  EXPECT_EXIT(stop(), testing::KilledBySignal(SIGABRT), "broken catalogue");
}

}  // namespace
}  // namespace sorrel
