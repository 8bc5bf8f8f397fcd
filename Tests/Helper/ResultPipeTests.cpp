#include "Helper/ResultPipe.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "Tests/Support/ForkedChild.hpp"

namespace sorrel::helper {
namespace {

using Error = HelperEventErrorID;

/// The bytes that a writer puts into a pipe.
std::string written(const std::function<void(ResultPipeWriter&)>& work) {
  std::array<int, 2> ends{-1, -1};
  EXPECT_EQ(::pipe(ends.data()), 0);
  const FileDescriptor in(ends[0]);
  {
    const FileDescriptor out(ends[1]);
    ResultPipeWriter writer(out.get());
    work(writer);
  }
  std::string bytes(60'000, '\0');
  bytes.resize(static_cast<std::size_t>(::read(in.get(), bytes.data(), bytes.size())));
  return bytes;
}

std::string sample() {
  return written([](ResultPipeWriter& writer) {
    writer.result(1, Error::MoveFail, "why\0not");
    writer.result(0, Error::Success, "");
    writer.end({true, -7});
  });
}

TEST(ResultPipe, piecesOfAnySizeGiveTheSame) {
  const std::string bytes = sample();
  for (std::size_t size = 1; size <= bytes.size(); ++size) {
    ResultTable table(3);
    ResultPipeReader reader(table);
    for (std::size_t at = 0; at < bytes.size(); at += size) {
      EXPECT_FALSE(reader.outcome().has_value());
      ASSERT_TRUE(reader.take(std::string_view(bytes).substr(at, size)));
    }
    EXPECT_EQ(table.status(1, Error::NoCause), Error::MoveFail);
    EXPECT_EQ(table.text(1, ""), "why");
    EXPECT_TRUE(table.isSuccess(0));
    EXPECT_FALSE(table.isKnown(2));
    ASSERT_TRUE(reader.outcome().has_value());
    EXPECT_TRUE(reader.outcome()->flag);
    EXPECT_EQ(reader.outcome()->code, -7);
  }
}

TEST(ResultPipe, aRecordThatIsCutShortIsNoResult) {
  const std::string bytes =
      written([](ResultPipeWriter& writer) { writer.result(0, Error::DeleteError, "text"); });
  ResultTable table(1);
  ResultPipeReader reader(table);
  EXPECT_TRUE(reader.take(std::string_view(bytes).substr(0, bytes.size() - 1)));
  EXPECT_FALSE(table.isKnown(0));
}

TEST(ResultPipe, anIndexThatIsNotThereIsPassedOver) {
  ResultTable table(1);
  ResultPipeReader reader(table);
  EXPECT_TRUE(reader.take(written([](ResultPipeWriter& writer) { writer.result(1, Error::Success, ""); })));
  EXPECT_EQ(table.successes(), 0U);
}

TEST(ResultPipe, whatNoWriterMakesIsRefused) {
  ResultTable table(1);
  EXPECT_FALSE(ResultPipeReader(table).take(std::string(64, '\xff')));
  const std::string unknownStatus =
      written([](ResultPipeWriter& writer) { writer.result(0, static_cast<Error>(6), ""); });
  EXPECT_FALSE(ResultPipeReader(table).take(unknownStatus));
  EXPECT_FALSE(ResultPipeReader(table).take(sample() + sample()));
}

TEST(ResultPipe, aWriterWithoutAReaderEnds) {
  const std::string ending = test::inChild([] {
    std::array<int, 2> ends{-1, -1};
    if (::pipe(ends.data()) != 0) return std::string("no pipe");
    ::close(ends[0]);
    ::signal(SIGPIPE, SIG_IGN);
    ResultPipeWriter(ends[1]).result(0, Error::Success, "");
    return std::string("went on");
  });
  EXPECT_EQ(ending, "ended with status 1");
}

}  // namespace
}  // namespace sorrel::helper
