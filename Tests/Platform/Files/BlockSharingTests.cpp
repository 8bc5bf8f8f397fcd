#include "SorrelFramework/Platform/Files/BlockSharing.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fiemap.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/LoopFileSystem.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

using test::cloneFile;
using test::operator""_KiB;

using Extents = std::vector<FileExtent>;

constexpr std::uint32_t kShared = FIEMAP_EXTENT_SHARED;
constexpr std::uint32_t kLast = FIEMAP_EXTENT_LAST;
constexpr std::uint64_t kBlock = 4096;
constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();

/// An extent in numbers of blocks.
FileExtent blocks(std::uint64_t logical, std::uint64_t physical, std::uint64_t count,
                  std::uint32_t flags = kShared) {
  return {logical * kBlock, physical * kBlock, count * kBlock, flags};
}

/// The result for a file of ten blocks.
std::optional<BlockSharing> sharingOf(const Extents& extents, std::uint64_t device = 1,
                                      std::uint64_t size = 10 * kBlock) {
  return BlockSharing::from(device, size, extents);
}

bool areClones(const std::optional<BlockSharing>& a, const std::optional<BlockSharing>& b) {
  return a && b && !a->cloneText().empty() && a->cloneText() == b->cloneText();
}

bool areClones(const Extents& a, const Extents& b) { return areClones(sharingOf(a), sharingOf(b)); }

// Made-up extents

TEST(BlockSharing, filesInTheSameSharedBlocksAreClones) {
  EXPECT_TRUE(areClones({blocks(0, 100, 10)}, {blocks(0, 100, 10)}));
  EXPECT_TRUE(areClones({blocks(0, 100, 4), blocks(4, 300, 6)}, {blocks(0, 100, 4), blocks(4, 300, 6)}));
}

TEST(BlockSharing, filesInOtherBlocksAreNoClones) {
  EXPECT_FALSE(areClones({blocks(0, 100, 10)}, {blocks(0, 101, 10)}));
  EXPECT_FALSE(areClones({blocks(0, 100, 4), blocks(4, 300, 6)}, {blocks(0, 100, 4), blocks(4, 301, 6)}));
  EXPECT_FALSE(areClones({blocks(0, 100, 4), blocks(4, 300, 6)}, {blocks(0, 100, 5), blocks(5, 301, 5)}));
  EXPECT_FALSE(areClones({blocks(0, 100, 10)}, {blocks(0, 100, 9)}));
}

TEST(BlockSharing, cloneIsSharedAsAWholeAndFreesNothing) {
  const auto sharing = sharingOf({blocks(0, 100, 10)});
  ASSERT_TRUE(sharing);
  EXPECT_EQ(sharing->ownBytes(), 0U);
  EXPECT_EQ(sharing->sharedBytes(), 10 * kBlock);
}

TEST(BlockSharing, clonesMayBeCutIntoExtentsInTwoWays) {
  EXPECT_TRUE(areClones({blocks(0, 100, 10, kShared | kLast)},
                        {blocks(0, 100, 3), blocks(3, 103, 1), blocks(4, 104, 6, kShared | kLast)}));
}

TEST(BlockSharing, runIsBrokenByAGapInTheFileOrOnTheDisk) {
  EXPECT_FALSE(areClones({blocks(0, 100, 4), blocks(4, 104, 6)}, {blocks(0, 100, 4), blocks(5, 104, 5)}));
  EXPECT_FALSE(areClones({blocks(0, 100, 9)}, {blocks(0, 100, 4), blocks(5, 104, 5)}));
  EXPECT_FALSE(areClones({blocks(0, 100, 10)}, {blocks(0, 100, 4), blocks(4, 105, 6)}));
}

TEST(BlockSharing, holesOfClonesAreInOnePlace) {
  EXPECT_TRUE(areClones({blocks(2, 100, 2), blocks(6, 104, 2)}, {blocks(2, 100, 2), blocks(6, 104, 2)}));
  EXPECT_FALSE(areClones({blocks(2, 100, 2), blocks(6, 104, 2)}, {blocks(1, 100, 2), blocks(6, 104, 2)}));
  EXPECT_EQ(sharingOf({blocks(2, 100, 2), blocks(6, 104, 2)})->ownBytes(), 0U);
}

TEST(BlockSharing, clonesLieOnOneDeviceAndHaveOneSize) {
  const Extents extents = {blocks(0, 100, 10)};
  EXPECT_FALSE(areClones(sharingOf(extents, 1), sharingOf(extents, 2)));
  EXPECT_FALSE(areClones(sharingOf(extents, 1, 10 * kBlock), sharingOf(extents, 1, 10 * kBlock - 1)));
  const Extents hole = {blocks(0, 100, 5)};
  EXPECT_FALSE(areClones(sharingOf(hole, 1, 10 * kBlock), sharingOf(hole, 1, 11 * kBlock)));
}

TEST(BlockSharing, nothingIsToldOfAFileThatSharesNothing) {
  EXPECT_FALSE(sharingOf({blocks(0, 100, 10, 0)}));
  EXPECT_FALSE(sharingOf({blocks(0, 100, 10, kLast | FIEMAP_EXTENT_UNWRITTEN)}));
}

TEST(BlockSharing, nothingIsToldOfAFileWithoutExtents) {
  EXPECT_FALSE(sharingOf({}));
  EXPECT_FALSE(sharingOf({}, 1, 0));
}

TEST(BlockSharing, oneExtentOfItsOwnIsEnoughToBeNoClone) {
  const Extents extents = {blocks(0, 100, 4), blocks(4, 104, 1, 0), blocks(5, 105, 5)};
  EXPECT_FALSE(areClones(extents, extents));
  const auto sharing = sharingOf(extents);
  ASSERT_TRUE(sharing);
  EXPECT_EQ(sharing->cloneText(), "");
  EXPECT_EQ(sharing->ownBytes(), kBlock);
  EXPECT_EQ(sharing->sharedBytes(), 9 * kBlock);
}

struct FlagRow {
  const char* name;
  std::uint32_t flag;
  bool isTold;
};

class BlockSharingFlag : public testing::TestWithParam<FlagRow> {};

/// The flag on the first extent only, then on the last one only: all others are plain and shared.
TEST_P(BlockSharingFlag, decidesWhetherAnythingIsTold) {
  const std::uint32_t flags = kShared | GetParam().flag;
  EXPECT_EQ(sharingOf({blocks(0, 100, 4, flags), blocks(4, 300, 6)}).has_value(), GetParam().isTold);
  EXPECT_EQ(sharingOf({blocks(0, 100, 4), blocks(4, 300, 6, flags)}).has_value(), GetParam().isTold);
  EXPECT_EQ(sharingOf({blocks(0, 100, 4), blocks(4, 300, 6, GetParam().flag)}).has_value(),
            GetParam().isTold);
}

INSTANTIATE_TEST_SUITE_P(Flags, BlockSharingFlag,
                         testing::Values(FlagRow{"None", 0, true}, FlagRow{"Last", kLast, true},
                                         FlagRow{"Unknown", FIEMAP_EXTENT_UNKNOWN, false},
                                         FlagRow{"DelayedAllocation", FIEMAP_EXTENT_DELALLOC, false},
                                         FlagRow{"Encoded", FIEMAP_EXTENT_ENCODED, true},
                                         FlagRow{"Encrypted", FIEMAP_EXTENT_DATA_ENCRYPTED, true},
                                         FlagRow{"NotAligned", FIEMAP_EXTENT_NOT_ALIGNED, false},
                                         FlagRow{"Inline", FIEMAP_EXTENT_DATA_INLINE, false},
                                         FlagRow{"Tail", FIEMAP_EXTENT_DATA_TAIL, false},
                                         FlagRow{"Unwritten", FIEMAP_EXTENT_UNWRITTEN, true},
                                         FlagRow{"Merged", FIEMAP_EXTENT_MERGED, true}),
                         [](const auto& row) { return row.param.name; });

TEST(BlockSharing, codedExtentsAreComparedOneByOne) {
  for (const std::uint32_t code : {FIEMAP_EXTENT_ENCODED, FIEMAP_EXTENT_DATA_ENCRYPTED}) {
    const std::uint32_t flags = kShared | code;
    const Extents whole = {blocks(0, 100, 10, flags)};
    EXPECT_TRUE(areClones(whole, whole));
    EXPECT_FALSE(areClones(whole, {blocks(0, 100, 4, flags), blocks(4, 104, 6, flags)}));
    EXPECT_FALSE(areClones(whole, {blocks(0, 100, 10)}));
    // Two pieces of one encoded extent around a piece of another one.
    const Extents pieces = {blocks(0, 100, 4, flags), blocks(4, 300, 2, flags), blocks(6, 100, 4, flags)};
    EXPECT_TRUE(areClones(pieces, pieces));
  }
}

TEST(BlockSharing, writtenAndUnwrittenDataAreNotAlike) {
  const std::uint32_t unwritten = kShared | FIEMAP_EXTENT_UNWRITTEN;
  EXPECT_FALSE(areClones({blocks(0, 100, 10)}, {blocks(0, 100, 10, unwritten)}));
  EXPECT_FALSE(areClones({blocks(0, 100, 10)}, {blocks(0, 100, 4), blocks(4, 104, 6, unwritten)}));
}

TEST(BlockSharing, whatLiesBehindTheEndOfTheFileDoesNotCount) {
  const Extents plain = {blocks(0, 100, 10)};
  EXPECT_TRUE(areClones(plain, {blocks(0, 100, 10), blocks(10, 300, 5, 0)}));
  EXPECT_TRUE(areClones(plain, {blocks(0, 100, 12)}));
  const auto cut = sharingOf({blocks(0, 100, 4), blocks(4, 300, 6, 0)}, 1, 4 * kBlock + 5);
  ASSERT_TRUE(cut);
  EXPECT_EQ(cut->sharedBytes(), 4 * kBlock);
  EXPECT_EQ(cut->ownBytes(), 5U);
}

TEST(BlockSharing, blocksThatAFileHasTwiceMayBeSharedWithNobodyElse) {
  EXPECT_FALSE(sharingOf({blocks(0, 100, 5), blocks(5, 100, 5)}));
  EXPECT_FALSE(sharingOf({blocks(0, 104, 5), blocks(5, 100, 5)}));
  EXPECT_TRUE(sharingOf({blocks(0, 105, 5), blocks(5, 100, 5)}));
}

TEST(BlockSharing, nothingIsToldOfExtentsThatMakeNoSense) {
  EXPECT_FALSE(sharingOf({blocks(4, 100, 4), blocks(0, 200, 4)}));
  EXPECT_FALSE(sharingOf({blocks(0, 100, 4), blocks(3, 200, 4)}));
  EXPECT_FALSE(sharingOf({blocks(0, 100, 0), blocks(0, 200, 4)}));
  EXPECT_FALSE(sharingOf({{kBlock, 0, kMost, kShared}}));
  EXPECT_FALSE(sharingOf({{0, kMost, kBlock, kShared}}));
}

// Real files

class RealBlockSharing : public testing::TestWithParam<const char*> {
 protected:
  using Work = std::function<std::string()>;

  /// Runs `work` in a child, with a new file system at "mount"; the child reports the failures.
  void expectFine(const Work& work, const std::string& options = "") {
    const std::string told = test::inMountingChild([&]() -> std::string {
      const test::LoopFileSystem disk(GetParam(), volume_.path("image"), volume_.path("mount"), options);
      return disk.isMounted() ? work() : "skip";
    });
    if (told == "skip") GTEST_SKIP() << "no " << GetParam() << ", no loop device or no right to mount";
    EXPECT_EQ(told, "");
  }
  /// A file with data that does not compress, and its clone.
  bool makeClones() { return cloneFile(volume_.filledFile("mount/a", 64_KiB), volume_.path("mount/b")); }
  [[nodiscard]] std::optional<BlockSharing> at(const std::string& name) const {
    return BlockSharing::of(volume_.path("mount/" + name));
  }
  /// Writes a block inside the file without flushing it.
  bool rewrite(const std::string& name, off_t block) {
    const FileDescriptor file(::open(volume_.path("mount/" + name).c_str(), O_RDWR | O_CLOEXEC));
    std::array<char, kBlock> bytes{};
    const off_t at = block * off_t{kBlock};
    return ::pread(file.get(), bytes.data(), bytes.size(), at) == ssize_t{kBlock} &&
           ::pwrite(file.get(), bytes.data(), bytes.size(), at) == ssize_t{kBlock};
  }

  test::TemporaryVolume volume_;
};

TEST_P(RealBlockSharing, cloneIsOne) {
  expectFine([this]() -> std::string {
    if (!makeClones()) return "no clone was made";
    volume_.filledFile("mount/c", 64_KiB);
    if (at("c")) return "a copy of its own is told";
    if (!areClones(at("a"), at("b"))) return "the clones are none";
    return at("a")->ownBytes() == 0 && at("a")->sharedBytes() == 64 * 1024 ? "" : "wrong numbers";
  });
}

TEST_P(RealBlockSharing, fileWhoseCloneWasEmptiedSharesNothing) {
  expectFine([this]() -> std::string {
    if (!makeClones() || !at("b")) return "no clone was made";
    if (::truncate(volume_.path("mount/a").c_str(), 0) != 0) return "not emptied";
    return at("b") ? "still shared" : "";
  });
}

TEST_P(RealBlockSharing, cloneThatWasPartlyRewrittenIsNoneBeforeTheDiskHasIt) {
  expectFine([this]() -> std::string {
    if (!makeClones() || !rewrite("b", 3)) return "no clone was made";
    const auto changed = at("b");
    if (!changed || areClones(at("a"), changed)) return "still a clone";
    return changed->ownBytes() == kBlock && changed->sharedBytes() == 64 * 1024 - kBlock ? "" : "numbers";
  });
}

TEST_P(RealBlockSharing, clonesWithHolesAreClones) {
  expectFine([this]() -> std::string {
    const std::string a = volume_.filledFile("mount/a", 64_KiB);
    if (::truncate(a.c_str(), 1 << 20) != 0 || !cloneFile(a, volume_.path("mount/b"))) return "no clone";
    volume_.file("mount/hole", 64_KiB);
    if (!cloneFile(volume_.path("mount/hole"), volume_.path("mount/hole 2"))) return "no clone";
    if (at("hole 2")) return "a hole is shared";
    return areClones(at("a"), at("b")) && at("b")->sharedBytes() == 64 * 1024 ? "" : "no clones";
  });
}

TEST_P(RealBlockSharing, fileOfManyExtentsIsReadToItsEndOrNotAtAll) {
  expectFine([this]() -> std::string {
    const std::string a = volume_.filledFile("mount/a", test::ByteCount{400 * kBlock});
    const std::string b = volume_.path("mount/b");
    if (!cloneFile(a, b)) return "no clone";
    for (off_t block = 1; block < 400; block += 2) {
      if (!rewrite("b", block)) return "not rewritten";
    }
    const auto changed = BlockSharing::of(b, 400);
    if (!changed || changed->ownBytes() != 200 * kBlock || changed->sharedBytes() != 200 * kBlock) {
      return "wrong numbers";
    }
    return BlockSharing::of(b, 399) ? "more extents are read than allowed" : "";
  });
}

TEST_P(RealBlockSharing, cloneOfAnOddSizeEndsWhereItEnds) {
  expectFine([this]() -> std::string {
    const std::string a = volume_.filledFile("mount/a", test::ByteCount{5 * kBlock + 17});
    if (!cloneFile(a, volume_.path("mount/b"))) return "no clone was made";
    return areClones(at("a"), at("b")) && at("a")->sharedBytes() == 5 * kBlock + 17 ? "" : "no clones";
  });
}

TEST_P(RealBlockSharing, linkToACloneIsNotFollowed) {
  expectFine([this]() -> std::string {
    if (!makeClones()) return "no clone was made";
    volume_.link("mount/link", "b");
    return at("b") && !at("link") ? "" : "followed";
  });
}

INSTANTIATE_TEST_SUITE_P(FileSystems, RealBlockSharing, testing::Values("btrfs", "xfs"),
                         [](const auto& row) { return std::string(row.param); });

class BtrfsBlockSharing : public RealBlockSharing {};

TEST_P(BtrfsBlockSharing, compressedCloneIsOneUntilItIsPartlyRewritten) {
  expectFine(
      [this]() -> std::string {
        const std::string a = volume_.file("mount/a", std::string(300 << 10, 'a'));
        if (!cloneFile(a, volume_.path("mount/b"))) return "no clone was made";
        if (!areClones(at("a"), at("b"))) return "the clones are none";
        if (!rewrite("b", 3)) return "not rewritten";
        return areClones(at("a"), at("b")) ? "still a clone" : "";
      },
      "compress-force=zlib");
}

TEST_P(BtrfsBlockSharing, fileThatLiesInTheMetadataIsNoClone) {
  expectFine([this]() -> std::string {
    const std::string a = volume_.file("mount/a", std::string(1000, 'a'));
    ::sync();
    if (!cloneFile(a, volume_.path("mount/b"))) return "no clone was made";
    ::sync();
    return at("a") || at("b") ? "told" : "";
  });
}

TEST_P(BtrfsBlockSharing, blocksOfASnapshotAreSharedWithoutAClone) {
  expectFine([this]() -> std::string {
    const std::string point = volume_.path("mount");
    const std::string make = "btrfs subvolume create " + point + "/sub >/dev/null 2>&1";
    if (std::system(make.c_str()) != 0) return "no subvolume";
    volume_.filledFile("mount/sub/a", 64_KiB);
    const std::string take = "btrfs subvolume snapshot " + point + "/sub " + point + "/then >/dev/null 2>&1";
    if (std::system(take.c_str()) != 0) return "no snapshot";
    if (!at("sub/a") || at("sub/a")->ownBytes() != 0) return "not shared";
    return areClones(at("sub/a"), at("then/a")) ? "told as clones across devices" : "";
  });
}

INSTANTIATE_TEST_SUITE_P(FileSystems, BtrfsBlockSharing, testing::Values("btrfs"),
                         [](const auto& row) { return std::string(row.param); });

TEST(BlockSharing, fileSystemWithoutClonesTellsNothing) {
  const test::TemporaryVolume volume;
  EXPECT_FALSE(BlockSharing::of(volume.filledFile("a", 64_KiB)));
  const std::string told = test::inMemoryChild([] {
    const test::TemporaryVolume memory;
    return std::string(BlockSharing::of(memory.filledFile("a", 64_KiB)) ? "told" : "nothing");
  });
  EXPECT_EQ(told, "nothing");
}

TEST(BlockSharing, onlyRegularFilesAreOpened) {
  const test::TemporaryVolume volume;
  EXPECT_FALSE(BlockSharing::of(volume.path("missing")));
  EXPECT_FALSE(BlockSharing::of(volume.folder("folder")));
  EXPECT_FALSE(BlockSharing::of(volume.fifo("fifo")));  // and does not wait for its other end
  EXPECT_FALSE(BlockSharing::of(volume.file("empty")));
  EXPECT_FALSE(BlockSharing::of(volume.path("empty") + std::string(1, '\0')));
}

}  // namespace
}  // namespace sorrel
