#include "SorrelFramework/HelpTool/EventRefusal.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel {
namespace {

constexpr const char* kText = "Nothing was done.";
const HelperDictionary kEmpty;

bool gives(std::int32_t id, const HelperDictionary& event, const HelperDictionary& expected) {
  return refusalOf(id, event, kText) == expected;
}

TEST(EventRefusal, aDeleteGetsItsNumbersBack) {
  EXPECT_TRUE(
      gives(0, {{"/a", HelperDictionary{{"0", 7}, {"1", -8}}}, {"/b", kEmpty}},
            {{"/a", HelperDictionary{{"0", 7}, {"1", -8}, {"DeleteStatus", 2}, {"DeleteDesc", kText}}},
             {"/b", HelperDictionary{{"DeleteStatus", 2}, {"DeleteDesc", kText}}}}));
}

TEST(EventRefusal, aShredNamesItsPaths) {
  EXPECT_TRUE(
      gives(1, {{"/a\xff", kEmpty}},
            {{"/a\xff", HelperDictionary{{"Path", "/a\xff"}, {"DeleteStatus", 4}, {"DeleteDesc", kText}}}}));
}

TEST(EventRefusal, cleanAndMoveListPathsUnderThemselves) {
  EXPECT_TRUE(gives(2, {{"OperationValue", 2}, {"/a", kEmpty}},
                    {{"/a", HelperDictionary{{"DeleteStatus", 2}, {"DeleteDesc", kText}}}}));
  EXPECT_TRUE(gives(2, {{"OperationValue", 3}, {"/a", HelperDictionary{{"ToPath", "/b"}}}},
                    {{"/a", HelperDictionary{{"DeleteStatus", 5}, {"DeleteDesc", kText}}}}));
}

TEST(EventRefusal, whatNamesNoPathsHasNoEntries) {
  for (const int operation : {0, 1, 4}) EXPECT_TRUE(gives(2, {{"OperationValue", operation}}, kEmpty));
  EXPECT_TRUE(gives(2, {{"/a", kEmpty}}, kEmpty));
  EXPECT_TRUE(gives(2, {{"OperationValue", "2"}, {"/a", kEmpty}}, kEmpty));
  EXPECT_TRUE(gives(3, kEmpty, kEmpty));
  EXPECT_TRUE(gives(9, {{"/a", kEmpty}}, kEmpty));
}

TEST(EventRefusal, eachReasonHasItsText) {
  EXPECT_EQ(refusalText("not-authorised"), "The operation was not authorised.");
  EXPECT_EQ(refusalText("wrong-password"), "No right password was given.");
  EXPECT_EQ(refusalText("no-agent"), "No program of this session can ask for a password.");
  EXPECT_EQ(refusalText("never-asked"),
            "The rules of this system refuse it; they ask only in an active session at the machine itself.");
  EXPECT_EQ(refusalText("no-authority"), "The system can’t authorise the operation now.");
  EXPECT_EQ(refusalText("too-many"), "The privileged helper is at work for you already.");
  EXPECT_EQ(refusalText("busy"), "The privileged helper is busy.");
  EXPECT_EQ(refusalText("stopped"), "The operation was stopped.");
  for (const char* other : {"", "no-ticket", "anything"}) EXPECT_EQ(refusalText(other), kText);
}

class SettledReply : public testing::Test {
 protected:
  /// The status of a file for which the reply has `status`, depending on whether it was removed.
  std::int64_t statusOf(bool isThereBefore, bool isThereNow, const std::string& key, int status = 2,
                        std::int32_t eventID = 0) {
    const std::string file = folder.path("file");
    if (isThereBefore) folder.file("file");
    const HelperDictionary event{{file, kEmpty}};
    const std::vector<SenderView> views{viewOf(file)};
    if (!isThereNow) ::unlink(file.c_str());
    HelperDictionary reply{{key.empty() ? file : key, HelperDictionary{{"0", 7}, {"DeleteStatus", status}}}};
    EXPECT_FALSE(settleByDisk(eventID, event, views, reply));
    const HelperDictionary& entry = *reply.begin()->second.asDictionary();
    EXPECT_EQ(*entry.at("0").asNumber(), 7);
    return *entry.at("DeleteStatus").asNumber();
  }
  test::TemporaryFolder folder;
};

TEST_F(SettledReply, aPathThatIsGoneIsDeletedWhateverTheReplySays) {
  EXPECT_EQ(statusOf(true, false, ""), 0);
  EXPECT_EQ(statusOf(true, false, "0000000"), 0) << "the helper's replies have numbers for keys";
}

TEST_F(SettledReply, aShreddedPathThatIsGoneIsDone) {
  EXPECT_EQ(statusOf(true, false, "0000000", 4, 1), 0);
  EXPECT_EQ(statusOf(true, true, "0000000", 4, 1), 4);
}

TEST_F(SettledReply, aCleanListsOnlyWhatIsStillThere) {
  const std::string gone = folder.path("gone");
  const std::string left = folder.file("left");
  const HelperDictionary event{{"OperationValue", 2}, {gone, kEmpty}, {left, kEmpty}};
  const SenderView present{SenderView::Kind::Present, 1, 1};
  const std::vector<SenderView> views{present, present, {}};  // in the order of the keys
  const HelperDictionary failed{{"DeleteStatus", 2}, {"DeleteDesc", kText}};
  HelperDictionary reply{{gone, failed}, {left, failed}};
  EXPECT_FALSE(settleByDisk(2, event, views, reply));
  EXPECT_TRUE(reply == (HelperDictionary{{left, failed}}));
  ::unlink(left.c_str());
  EXPECT_TRUE(settleByDisk(2, event, views, reply)) << "everything is done";
  EXPECT_TRUE(reply.empty());
}

TEST_F(SettledReply, aMovedPathThatIsGoneMayBeAnywhere) {
  const std::string gone = folder.path("gone");
  const HelperDictionary event{{"OperationValue", 3}, {gone, HelperDictionary{{"ToPath", "/b"}}}};
  const HelperDictionary failed{{"DeleteStatus", 5}, {"DeleteDesc", kText}};
  HelperDictionary reply{{gone, failed}};
  EXPECT_FALSE(settleByDisk(2, event, {{SenderView::Kind::Present, 1, 1}, {}}, reply));
  EXPECT_TRUE(reply == (HelperDictionary{{gone, failed}}));
}

TEST_F(SettledReply, aPathThatIsThereIsAsTheReplySays) {
  EXPECT_EQ(statusOf(true, true, ""), 2);
  EXPECT_EQ(statusOf(true, true, "", 0), 0);
}

TEST_F(SettledReply, aPathThatWasNeverThereWasNotDeleted) { EXPECT_EQ(statusOf(false, false, ""), 2); }

TEST_F(SettledReply, aPathThatTheReplyOmitsStaysOut) {
  HelperDictionary reply;
  EXPECT_FALSE(settleByDisk(0, {{folder.path("none"), kEmpty}}, {{SenderView::Kind::Present, 1, 1}}, reply));
  EXPECT_TRUE(reply.empty());
}

}  // namespace
}  // namespace sorrel
