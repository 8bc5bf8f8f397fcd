#include "Helper/RemovedPaths.hpp"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "SorrelFramework/HelpTool/EventCodec.hpp"

namespace sorrel::helper {
namespace {

/// The RemovedPaths of an event with these paths, of which those in `failed` still exist and those in `open`
/// have no result.
class RemovedPathsTest : public testing::Test {
 protected:
  RemovedPaths of(const std::vector<std::string>& paths, const std::set<std::string>& failed = {},
                  const std::set<std::string>& open = {}) {
    HelperMessage message{HelperMessage::Kind::Event, HelperDictionary(), {}};
    message.dictionary->emplace("OperationValue", 2);
    for (const std::string& path : paths) message.dictionary->emplace(path, HelperDictionary());
    bytes_ = encodeHelperMessage(message).value_or("");
    const auto event = MessageView::of(bytes_, HelperMessage::Kind::Event);
    ResultTable results(message.dictionary->size());
    for (const MessageView::Entry& entry : event->dictionary()) {
      const std::string path(entry.key);
      if (path == "OperationValue" || open.contains(path)) continue;
      const bool isGone = !failed.contains(path);
      results.set(entry.index, isGone ? HelperEventErrorID::Success : HelperEventErrorID::DeleteError, "");
    }
    return RemovedPaths::of(*event, results);
  }

  std::string bytes_;
};

using Paths = std::vector<std::string_view>;

TEST_F(RemovedPathsTest, areTheTopmostThatAreGone) {
  const RemovedPaths removed = of({"/a", "/a!", "/a/b", "/a/b/c", "/b/x", "/b", "/c"}, {"/b"}, {"/c"});
  EXPECT_EQ(removed.topmost, (Paths{"/a", "/a!", "/b/x"}));
  EXPECT_EQ(removed.count, 3U);
}

TEST_F(RemovedPathsTest, areAHundredAtMostAndCountedAll) {
  std::vector<std::string> paths;
  for (int i = 0; i < 250; ++i) paths.push_back("/p" + std::to_string(i));
  const RemovedPaths removed = of(paths);
  EXPECT_EQ(removed.topmost.size(), RemovedPaths::kMost);
  EXPECT_EQ(removed.count, 250U);
  EXPECT_EQ(removed.topmost.front(), "/p0");
  EXPECT_EQ(of({"/a"}, {"/a"}).count, 0U);
}

}  // namespace
}  // namespace sorrel::helper
