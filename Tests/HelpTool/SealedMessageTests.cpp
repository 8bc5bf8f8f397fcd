#include "SorrelFramework/HelpTool/SealedMessage.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "SorrelFramework/HelpTool/SealedMemory.hpp"

namespace sorrel {
namespace {

using Kind = HelperMessage::Kind;

const HelperMessage kMessage = {Kind::Event,
                                HelperDictionary{{"/a\xff", HelperDictionary{{"0", 7}}}},
                                {{SenderView::Kind::Absent, 0, 0}}};

FileDescriptor sealed(const HelperMessage& message) {
  return SealedMemory::make(encodeHelperMessage(message).value());
}

TEST(SealedMessage, comesOutAsItWentIn) {
  const FileDescriptor memory = sealed(kMessage);
  ASSERT_TRUE(memory.isOpen());
  EXPECT_TRUE(SealedMessage::open(memory.get(), Kind::Event) == kMessage);
}

TEST(SealedMessage, isOfOneKind) {
  EXPECT_FALSE(SealedMessage::open(sealed(kMessage).get(), Kind::Reply).has_value());
}

TEST(SealedMessage, isReadFromSealedMemoryAlone) {
  const std::string bytes = encodeHelperMessage(kMessage).value_or("");
  const FileDescriptor memory(::memfd_create("unsealed", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  ASSERT_EQ(::write(memory.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  EXPECT_FALSE(SealedMessage::open(memory.get(), Kind::Event).has_value());
  ASSERT_EQ(::fcntl(memory.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL), 0);
  EXPECT_TRUE(SealedMessage::open(memory.get(), Kind::Event) == kMessage);
  EXPECT_FALSE(SealedMessage::open(-1, Kind::Event).has_value());
}

TEST(SealedMessage, thatIsNoneIsNothing) {
  EXPECT_FALSE(SealedMessage::open(SealedMemory::make("nonsense").get(), Kind::Event).has_value());
}

}  // namespace
}  // namespace sorrel
