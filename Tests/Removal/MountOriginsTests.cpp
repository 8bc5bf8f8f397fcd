#include "SorrelFramework/Removal/MountOrigins.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "Tests/Removal/MountStage.hpp"
#include "Tests/Support/LoopFileSystem.hpp"

namespace sorrel {
namespace {

using Origins = test::MountStage;

TEST_F(Origins, aSystemFolderBoundIntoAJailIsStillASystemFolder) {
  expect(
      [&]() -> std::string {
        if (!bind("/usr/lib", "jail/lib") || !bind("/etc", "jail/etc")) return "skip";
        std::string answers;
        for (const auto& entry : std::filesystem::directory_iterator(volume_.path("jail/lib"))) {
          const std::string told = helpers(entry.path()) + roots(entry.path());
          if (told != "refused refused ") answers += entry.path().string() + " " + told;
        }
        return answers + helpers(volume_.path("jail/etc/passwd"));
      },
      "refused ");
}

TEST_F(Origins, aBoundInnerFolderOfARefusedPlaceIsRefused) {
  volume_.file("kept/inner/deep/file", "x");
  volume_.file("other/inner/file", "x");
  expect(
      [&]() -> std::string {
        if (!bind(volume_.path("kept/inner"), "one") || !bind(volume_.path("one/deep"), "two") ||
            !bind(volume_.path("other/inner"), "three")) {
          return "skip";
        }
        return helpers(volume_.path("one/deep")) + helpers(volume_.path("one/deep/file")) +
               helpers(volume_.path("two/file")) + helpers(volume_.path("two/none")) +
               helpers(volume_.path("three/file"));
      },
      "refused refused refused refused free ");
}

TEST_F(Origins, aFolderThatIsMountedInARefusedPlaceTooIsRefused) {
  volume_.file("disk/file", "x");
  expect(
      [&]() -> std::string {
        if (!memory("disk")) return "skip";
        volume_.file("disk/file", "x");
        volume_.file("disk/in/file", "x");
        const std::string before = helpers(volume_.path("disk/file"));
        if (!bind(volume_.path("disk"), "kept/whole")) return "skip";
        return before + helpers(volume_.path("disk/file")) + helpers(volume_.path("disk/in/file"));
      },
      "free refused refused ");
}

TEST_F(Origins, whatNoOtherMountShowsIsRefusedForTheHelperOnly) {
  expect(
      [&]() -> std::string {
        if (!memory("disk")) return "skip";
        volume_.file("disk/in/file", "x");
        if (!bind(volume_.path("disk/in"), "shown")) return "skip";
        const std::string file = volume_.path("shown/file");
        const std::string before = helpers(file);
        if (::umount2(volume_.path("disk").c_str(), 0) != 0) return "skip";
        return before + helpers(file) + roots(file);
      },
      "free refused free ");
}

TEST_F(Origins, aFolderThatWasRenamedIsFoundOrRefused) {
  volume_.file("other/inner/file", "x");
  expect(
      [&]() -> std::string {
        if (!bind(volume_.path("other/inner"), "shown")) return "skip";
        std::filesystem::create_directories(volume_.path("kept"));
        std::filesystem::rename(volume_.path("other/inner"), volume_.path("kept/inner"));
        return helpers(volume_.path("shown/file"));
      },
      "refused ");
}

TEST_F(Origins, twoMountsThatLeadToEachOtherEndTheSearch) {
  volume_.file("a/in/file", "x");
  expect(
      [&]() -> std::string {
        if (!bind(volume_.path("a/in"), "b") || !bind(volume_.path("a/in"), "c") ||
            !bind(volume_.path("a"), "c/around")) {
          return "skip";
        }
        return helpers(volume_.path("b/file")) + helpers(volume_.path("c/file")) +
               helpers(volume_.path("c/around/in/file"));
      },
      "free free free ");
}

TEST_F(Origins, aMountThatHidesTheOriginDoesNotOpenIt) {
  volume_.file("kept/inner/file", "x");
  expect(
      [&]() -> std::string {
        if (!bind(volume_.path("kept/inner"), "shown") || !memory("kept")) return "skip";
        return helpers(volume_.path("shown/file"));
      },
      "refused ");
}

TEST_F(Origins, aFolderOfTheSameNameIsNotTakenForTheOrigin) {
  expect(
      [&]() -> std::string {
        if (!memory("disk")) return "skip";
        volume_.file("disk/in/file", "x");
        if (!bind(volume_.path("disk/in"), "shown") || !memory("disk")) return "skip";
        volume_.folder("disk/in");
        return helpers(volume_.path("shown/file"));
      },
      "refused ");
}

TEST_F(Origins, aPolicySeesTheMountsThatComeAfterIt) {
  volume_.file("kept/inner/file", "x");
  volume_.file("shown/file", "x");
  expect(
      [&]() -> std::string {
        RemovalPolicy policy = RemovalPolicy::forHelper(test::kKnownUser);
        policy.protectSubtree(volume_.path("kept"));
        if (!memory("other")) return "skip";
        volume_.file("other/file", "x");
        const auto ask = [&](const char* name) {
          return RemovalTarget::find(volume_.path(name), policy).isRefused() ? "refused " : "free ";
        };
        std::string answers = ask("shown/file");
        answers += ask("other/file");
        if (!bind(volume_.path("kept/inner"), "shown")) return "skip";
        answers += ask("shown/file");
        ::umount(volume_.path("shown").c_str());
        return answers + ask("shown/file");
      },
      "free free refused free ");
}

TEST_F(Origins, aPlaceThatIsRefusedLaterCountsForAMountThatWasSeenBefore) {
  volume_.file("later/inner/file", "x");
  expect(
      [&]() -> std::string {
        if (!bind(volume_.path("later/inner"), "shown")) return "skip";
        RemovalPolicy policy = RemovalPolicy::forHelper(test::kKnownUser);
        const std::string file = volume_.path("shown/file");
        const bool wasRefused = RemovalTarget::find(file, policy).isRefused();
        policy.protectSubtree(volume_.path("later"));
        return std::string(wasRefused ? "refused " : "free ") +
               (RemovalTarget::find(file, policy).isRefused() ? "refused" : "free");
      },
      "free refused");
}

TEST_F(Origins, aSubvolumeIsATreeOfItsOwn) {
  expect(
      [&]() -> std::string {
        const test::LoopFileSystem disk("btrfs", volume_.path("image"), volume_.path("disk"));
        const std::string home = volume_.path("disk/@home");
        if (!disk.isMounted() ||
            std::system(("btrfs subvolume create " + home + " >/dev/null 2>&1").c_str()) != 0) {
          return "skip";
        }
        volume_.file("disk/@home/in/file", "x");
        const auto loop = [&](const char* point, const char* options) {
          const std::string device = "$(findmnt -n -o SOURCE " + volume_.path("disk") + ")";
          return std::system(("mount -o " + std::string(options) + " " + device + " " + volume_.folder(point))
                                 .c_str()) == 0;
        };
        if (!loop("home", "subvol=@home") || !bind(volume_.path("home/in"), "shown")) return "skip";
        if (::umount(volume_.path("disk").c_str()) != 0) return "skip";
        const std::string answers =
            helpers(volume_.path("home/in/file")) + helpers(volume_.path("shown/file"));
        ::umount(volume_.path("home").c_str());
        return answers + helpers(volume_.path("shown/file"));
      },
      "free free refused ");
}

TEST_F(Origins, chainsLeadFromTheTopToTheShownFolder) {
  volume_.folder("a/in");
  expect(
      [&]() -> std::string {
        if (!bind(volume_.path("a/in"), "b")) return "skip";
        MountOrigins origins({});
        origins.refresh();
        const auto shown = identityOf(AT_FDCWD, volume_.path("b").c_str());
        const MountOrigins::Origin origin = origins.of(*shown);
        if (!origin.isKnown || origin.chains.size() != 1) return "not found";
        const auto& chain = origin.chains.front();
        const auto top = identityOf(AT_FDCWD, "/");
        const auto above = identityOf(AT_FDCWD, volume_.path("a").c_str());
        return std::string(chain.front().number == top->number ? "top " : "") +
               (chain[chain.size() - 2].number == above->number ? "above " : "") +
               (chain.back().number == shown->number ? "shown" : "");
      },
      "top above shown");
}

TEST_F(Origins, onlyTrustedMountsAreWalked) {
  volume_.folder("kept/inner");
  expect(
      [&]() -> std::string {
        if (!bind(volume_.path("kept/inner"), "b")) return "skip";
        const auto shown = identityOf(AT_FDCWD, volume_.path("b").c_str());
        MountOrigins origins([&](std::uint64_t mount) { return mount == shown->mount; });
        origins.refresh();
        return origins.of(*shown).isKnown ? "known" : "unknown";
      },
      "unknown");
}

}  // namespace
}  // namespace sorrel
