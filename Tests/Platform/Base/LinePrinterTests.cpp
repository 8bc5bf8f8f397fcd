#include "SorrelFramework/Platform/Base/LinePrinter.hpp"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace sorrel {
namespace {

class LinePrinterTest : public testing::Test {
 protected:
  LinePrinterTest() { printed().clear(); }
  ~LinePrinterTest() override { setLinePrinter(nullptr); }

  static std::string& printed() {
    static std::string text;
    return text;
  }
  static void note(std::string_view text) { printed() += "[" + std::string(text) + "]"; }
};

TEST_F(LinePrinterTest, printsToStandardOutput) {
  testing::internal::CaptureStdout();
  printLine("unable to open %s");
  printLine("");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "unable to open %s\n\n");
}

TEST_F(LinePrinterTest, anotherPrinterKeepsStandardOutputClean) {
  setLinePrinter(note);
  testing::internal::CaptureStdout();
  printLine("one");
  printLine("two");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(printed(), "[one][two]");
}

TEST_F(LinePrinterTest, nullBringsStandardOutputBack) {
  setLinePrinter(note);
  setLinePrinter(nullptr);
  testing::internal::CaptureStdout();
  printLine("one");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "one\n");
  EXPECT_EQ(printed(), "");
}

}  // namespace
}  // namespace sorrel
