#include "Helper/HelperCall.hpp"

#include <gtest/gtest.h>

#include "SorrelFramework/HelpTool/EventCodec.hpp"

namespace sorrel::helper {
namespace {

HelperCall callWith(std::int32_t id, const std::string& bytes) {
  HelperCall call;
  call.id = 7;
  call.uid = 12;
  call.sender = ":1.3";
  call.eventID = id;
  call.memory = SealedMemory::map(SealedMemory::make(bytes).get(), HelperLimits::bytes);
  return call;
}

std::string coded(const HelperDictionary& event, bool hasViews = true) {
  HelperMessage message{HelperMessage::Kind::Event, event, {}};
  if (hasViews) message.views.resize(event.size());
  return encodeHelperMessage(message).value();
}

const HelperDictionary kTwo = {{"/a", HelperDictionary()}, {"/b", HelperDictionary()}};

TEST(HelperCall, isReadStepByStep) {
  HelperCall call = callWith(1, coded(kTwo));
  EXPECT_EQ(call.described(), "call 7: uid=12 sender=:1.3 kind=event");
  EXPECT_FALSE(call.read()) << "not before its heading";
  ASSERT_TRUE(call.readHeading());
  EXPECT_EQ(call.action(), Action::Shred);
  EXPECT_EQ(call.paths(), 2U);
  EXPECT_FALSE(call.form.has_value());
  ASSERT_TRUE(call.read());
  EXPECT_EQ(call.form->paths, 2U);
  EXPECT_EQ(call.view->dictionary().size(), 2U);
  EXPECT_EQ(call.described(), "call 7: uid=12 sender=:1.3 kind=shred");
}

TEST(HelperCall, anUnsoundFormBehindASoundHeadingIsFound) {
  HelperCall call = callWith(0, coded(kTwo, false));
  ASSERT_TRUE(call.readHeading());
  EXPECT_FALSE(call.read());
  EXPECT_FALSE(call.form.has_value());
}

TEST(HelperCall, withoutSoundMemoryThereIsNoHeading) {
  HelperCall call;
  call.eventID = 0;
  EXPECT_EQ(call.described(), "call 0: uid=? sender= kind=event") << "nobody's, and not root's";
  EXPECT_FALSE(call.readHeading());
  EXPECT_EQ(call.mostReplyBytes(), 0U);
}

TEST(HelperCall, uninstallHasNeither) {
  HelperCall call;
  EXPECT_FALSE(call.readHeading());
  EXPECT_FALSE(call.read());
  EXPECT_EQ(call.action(), Action::Uninstall);
  EXPECT_NE(call.described().find("kind=uninstall"), std::string::npos);
}

TEST(HelperCall, theReplyNeedsRoomForItsWordsBesideTheEvent) {
  const std::string bytes = coded(kTwo);
  HelperCall call = callWith(1, bytes);
  ASSERT_TRUE(call.readHeading() && call.read());
  EXPECT_EQ(call.mostReplyBytes(), bytes.size() + 2 * HelperLimits::wordsBytes);
  const Reply reply = Reply::refused(*call.form, *call.view);
  EXPECT_TRUE(SealedMemory::map(reply.message.get(), call.mostReplyBytes()).has_value());
}

}  // namespace
}  // namespace sorrel::helper
