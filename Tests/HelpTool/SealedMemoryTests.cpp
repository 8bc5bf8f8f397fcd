#include "SorrelFramework/HelpTool/SealedMemory.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "Tests/Support/ProcessState.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel {
namespace {

constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL;
constexpr std::size_t kLimit = 100;

FileDescriptor memoryWith(std::string_view bytes, int seals) {
  FileDescriptor memory(::memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  EXPECT_EQ(::write(memory.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  EXPECT_EQ(::fcntl(memory.get(), F_ADD_SEALS, seals), 0);
  return memory;
}

bool isTaken(int descriptor) { return SealedMemory::map(descriptor, kLimit).has_value(); }

TEST(SealedMemory, givesBackItsBytes) {
  const std::string bytes("a\0\xff", 3);
  std::optional<SealedMemory> memory;
  {
    const FileDescriptor made = SealedMemory::make(bytes);
    memory = SealedMemory::map(made.get(), kLimit);
  }
  ASSERT_TRUE(memory.has_value());
  EXPECT_EQ(memory->bytes(), bytes);
}

TEST(SealedMemory, cannotBeChangedAnyMore) {
  const FileDescriptor memory = SealedMemory::make("abc");
  ASSERT_TRUE(memory.isOpen());
  EXPECT_EQ(::fcntl(memory.get(), F_GET_SEALS) & kSeals, kSeals);
  EXPECT_EQ(::pwrite(memory.get(), "x", 1, 0), -1);
  EXPECT_EQ(::ftruncate(memory.get(), 1), -1);
  EXPECT_EQ(::ftruncate(memory.get(), 9), -1);
}

TEST(SealedMemory, isNotInheritedByPrograms) {
  EXPECT_NE(::fcntl(SealedMemory::make("abc").get(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST(SealedMemory, everySealIsRequired) {
  EXPECT_TRUE(isTaken(memoryWith("abc", kSeals).get()));
  EXPECT_FALSE(isTaken(memoryWith("abc", 0).get()));
  for (const int seal : {F_SEAL_SHRINK, F_SEAL_GROW, F_SEAL_WRITE, F_SEAL_SEAL}) {
    EXPECT_FALSE(isTaken(memoryWith("abc", kSeals & ~seal).get())) << seal;
  }
}

TEST(SealedMemory, noOtherKindOfDescriptorIsTaken) {
  const test::TemporaryFolder folder;
  EXPECT_FALSE(isTaken(FileDescriptor(::open(folder.file("f", "abc").c_str(), O_RDONLY)).get()));
  EXPECT_FALSE(isTaken(FileDescriptor(::open("/dev/zero", O_RDONLY)).get()));
  EXPECT_FALSE(isTaken(FileDescriptor(::open(folder.path().c_str(), O_RDONLY)).get()));
  int pipe[2];
  ASSERT_EQ(::pipe(pipe), 0);
  const FileDescriptor reader(pipe[0]);
  const FileDescriptor writer(pipe[1]);
  EXPECT_FALSE(isTaken(reader.get()));
  EXPECT_FALSE(isTaken(-1));
}

TEST(SealedMemory, hugePagesAreNotTaken) {
  const FileDescriptor memory(::memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING | MFD_HUGETLB));
  if (!memory.isOpen()) GTEST_SKIP() << "no huge pages here";
  ASSERT_EQ(::ftruncate(memory.get(), 1 << 21), 0);
  ASSERT_EQ(::fcntl(memory.get(), F_ADD_SEALS, kSeals), 0);
  EXPECT_FALSE(SealedMemory::map(memory.get(), std::size_t{1} << 30).has_value());
}

TEST(SealedMemory, theSizeHasToFit) {
  EXPECT_TRUE(isTaken(SealedMemory::make(std::string(kLimit, 'x')).get()));
  EXPECT_FALSE(isTaken(SealedMemory::make(std::string(kLimit + 1, 'x')).get()));
  EXPECT_FALSE(isTaken(SealedMemory::make("").get()));
}

TEST(SealedMemory, memoryThatItsMakerNeverWroteIsNotTaken) {
  constexpr std::size_t kSize = std::size_t{1} << 20;
  const auto isTakenWithout = [](std::size_t from, std::size_t size) {
    const FileDescriptor memory(::memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    const std::string bytes(kSize, 'x');
    EXPECT_EQ(::write(memory.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(kSize));
    constexpr int hole = FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE;
    if (size > 0) {
      EXPECT_EQ(::fallocate(memory.get(), hole, static_cast<off_t>(from), static_cast<off_t>(size)), 0);
    }
    EXPECT_EQ(::fcntl(memory.get(), F_ADD_SEALS, kSeals), 0);
    return SealedMemory::map(memory.get(), kSize).has_value();
  };
  EXPECT_TRUE(isTakenWithout(0, 0));
  EXPECT_FALSE(isTakenWithout(0, kSize));
  EXPECT_FALSE(isTakenWithout(kSize / 2, 4096));
}

TEST(SealedMemory, whatAnotherProcessFilledIsSealedAndRead) {
  const FileDescriptor memory = SealedMemory::forFilling(3);
  ASSERT_TRUE(memory.isOpen());
  EXPECT_NE(::fcntl(memory.get(), F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_EQ(::pwrite(memory.get(), "abc", 3, 0), 3);
  EXPECT_EQ(::pwrite(memory.get(), "d", 1, 3), -1) << "it has the size that was asked for";
  EXPECT_EQ(::ftruncate(memory.get(), 2), -1);
  const auto sealed = SealedMemory::sealFilled(memory);
  ASSERT_TRUE(sealed.has_value());
  EXPECT_EQ(sealed->bytes(), "abc");
  EXPECT_EQ(::pwrite(memory.get(), "x", 1, 0), -1);
  EXPECT_EQ(::fcntl(memory.get(), F_GET_SEALS) & kSeals, kSeals);
}

TEST(SealedMemory, isNotSealedWhileItCanBeWrittenThroughAMapping) {
  const FileDescriptor memory = SealedMemory::forFilling(3);
  EXPECT_EQ(::pwrite(memory.get(), "abc", 3, 0), 3);
  void* const window = ::mmap(nullptr, 3, PROT_READ | PROT_WRITE, MAP_SHARED, memory.get(), 0);
  ASSERT_NE(window, MAP_FAILED);
  EXPECT_FALSE(SealedMemory::sealFilled(memory).has_value());
  ::munmap(window, 3);
  EXPECT_TRUE(SealedMemory::sealFilled(memory).has_value());
}

TEST(SealedMemory, sealsThatTheFillerSetsHideNothing) {
  constexpr int kFuture = 0x0010;  // F_SEAL_FUTURE_WRITE
  for (const int seals : {F_SEAL_SEAL, kFuture, kFuture | F_SEAL_SEAL}) {
    const FileDescriptor memory = SealedMemory::forFilling(3);
    EXPECT_EQ(::pwrite(memory.get(), "abc", 3, 0), 3);
    void* const window = ::mmap(nullptr, 3, PROT_READ | PROT_WRITE, MAP_SHARED, memory.get(), 0);
    ASSERT_NE(window, MAP_FAILED);
    ASSERT_EQ(::fcntl(memory.get(), F_ADD_SEALS, seals), 0);
    EXPECT_FALSE(SealedMemory::sealFilled(memory).has_value()) << seals;
    ::munmap(window, 3);
  }
}

TEST(SealedMemory, blocksBehindItsEndMakeUpForNoHole) {
  constexpr off_t kSize = off_t{1} << 20;
  const FileDescriptor memory = SealedMemory::forFilling(kSize);
  EXPECT_EQ(::fallocate(memory.get(), FALLOC_FL_KEEP_SIZE, kSize, kSize), -1);
  EXPECT_FALSE(SealedMemory::sealFilled(memory).has_value());
}

TEST(SealedMemory, leavesNoDescriptorOpen) {
  const std::size_t before = test::openDescriptors();
  { const auto memory = SealedMemory::map(SealedMemory::make("abc").get(), kLimit); }
  EXPECT_EQ(test::openDescriptors(), before);
}

}  // namespace
}  // namespace sorrel
