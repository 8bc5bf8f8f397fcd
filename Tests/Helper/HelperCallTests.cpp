#include "Helper/HelperCall.hpp"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "SorrelFramework/HelpTool/EventCodec.hpp"

namespace sorrel::helper {
namespace {

std::string coded(const HelperDictionary& event, bool hasViews = true) {
  HelperMessage message{HelperMessage::Kind::Event, event, {}};
  if (hasViews) message.views.resize(event.size());
  return encodeHelperMessage(message).value();
}

/// A call that announced this many paths, with `bytes` in its memory.
HelperCall callWith(std::int32_t event, std::uint32_t paths, const std::string& bytes) {
  HelperCall call;
  call.id = 7;
  call.uid = 12;
  call.sender = ":1.3";
  call.form = EventForm::announced(event, -1, paths).value();
  call.bytes = bytes.size();
  call.file = SealedMemory::forFilling(bytes.size());
  EXPECT_EQ(::pwrite(call.file.get(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
  return call;
}

const HelperDictionary kTwo = {{"/a", HelperDictionary()}, {"/b", HelperDictionary()}};

TEST(HelperCall, readsWhatItsCallerFilledIn) {
  HelperCall call = callWith(1, 2, coded(kTwo));
  EXPECT_EQ(call.action(), Action::Shred);
  EXPECT_EQ(call.described(), "call 7: uid=12 sender=:1.3 kind=shred");
  ASSERT_TRUE(call.read());
  EXPECT_EQ(call.view->dictionary().size(), 2U);
}

TEST(HelperCall, readsNothingButTheAnnouncedForm) {
  EXPECT_TRUE(callWith(0, 2, coded(kTwo)).read());
  EXPECT_FALSE(callWith(0, 1, coded(kTwo)).read()) << "the user was asked about one";
  EXPECT_FALSE(callWith(0, 3, coded(kTwo)).read());
  EXPECT_FALSE(callWith(0, 2, coded(kTwo, false)).read());
  EXPECT_FALSE(callWith(0, 2, "nonsense").read());
}

TEST(HelperCall, readsNoMemoryThatCanStillBeWritten) {
  HelperCall call = callWith(1, 2, coded(kTwo));
  void* const window = ::mmap(nullptr, 1, PROT_READ | PROT_WRITE, MAP_SHARED, call.file.get(), 0);
  ASSERT_NE(window, MAP_FAILED);
  EXPECT_FALSE(call.read());
  ::munmap(window, 1);
}

TEST(HelperCall, ofAnUnknownCallerIsNotRoots) {
  HelperCall call;
  EXPECT_EQ(call.described(), "call 0: uid=? sender= kind=delete");
  EXPECT_EQ(call.mostReplyBytes(), 0U);
}

TEST(HelperCall, theReplyNeedsRoomForItsWordsBesideTheEvent) {
  const std::string bytes = coded(kTwo);
  HelperCall call = callWith(1, 2, bytes);
  ASSERT_TRUE(call.read());
  EXPECT_EQ(call.mostReplyBytes(), bytes.size() + 2 * HelperLimits::wordsBytes);
  const Reply reply = Reply::of(call.form, *call.view, ResultTable(2), EventOutcome(), call.mostReplyBytes());
  EXPECT_LE(reply.bytes, call.mostReplyBytes());
  const auto memory = SealedMemory::map(reply.message.get(), call.mostReplyBytes());
  ASSERT_TRUE(memory.has_value());
  EXPECT_EQ(memory->bytes().size(), reply.bytes);
}

}  // namespace
}  // namespace sorrel::helper
