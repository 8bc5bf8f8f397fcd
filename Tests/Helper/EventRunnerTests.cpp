#include "Helper/EventRunner.hpp"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <thread>

#include "Tests/Helper/EventKit.hpp"
#include "Tests/Support/Checkers.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/ProcessState.hpp"
#include "Tests/Support/SilentFileSystem.hpp"

namespace sorrel::helper {
namespace {

using Seen = SenderView::Kind;

class EventRunnerTest : public test::EventKit {
 protected:
  EventOutcome maintain(HelperOperationID operation, HelperDictionary event) {
    event["OperationValue"] = static_cast<std::int64_t>(operation);
    return run(HelperHanldeEventID::Maintenance, event);
  }
};

TEST_F(EventRunnerTest, onePathThatFailsNeverStopsTheOthers) {
  const std::string first = volume.file("a", "x");
  const std::string theirs = volume.file("b", "x");
  volume.setOwner("b", kThird);
  const std::string last = volume.file("c", "x");
  const EventOutcome outcome = removeAll({first, theirs, last, "relative", "/etc/passwd"});
  EXPECT_FALSE(outcome.flag);
  EXPECT_EQ(results.size(), 5U);
  EXPECT_EQ(statusOf(first), Status::Success);
  EXPECT_EQ(descOf(first), "");
  EXPECT_TRUE(isRefused(theirs));
  EXPECT_TRUE(isRefused("relative"));
  EXPECT_TRUE(isRefused("/etc/passwd"));
  EXPECT_EQ(statusOf(last), Status::Success);
  EXPECT_TRUE(isThere("/etc/passwd"));
}

TEST_F(EventRunnerTest, aResultComesRightAfterItsActAndBeforeTheNext) {
  struct Watch : ResultSink {
    std::vector<std::string> paths;
    std::string told;
    void result(std::size_t, Status, std::string_view) override {
      for (const std::string& path : paths) told += isThere(path) ? '1' : '0';
      told += ' ';
    }
  } watch;
  HelperMessage message{HelperMessage::Kind::Event, HelperDictionary(), {}};
  for (const char* name : {"a", "b", "c"}) {
    watch.paths.push_back(volume.file(name, "x"));
    message.dictionary->emplace(watch.paths.back(), HelperDictionary());
    message.views.push_back(viewOf(watch.paths.back()));
  }
  const std::string bytes = encodeHelperMessage(message).value_or("");
  runEvent({EventForm{HelperHanldeEventID::Delete, {}, 3}, caller,
            MessageView::of(bytes, HelperMessage::Kind::Event).value(), configuration},
           watch);
  EXPECT_EQ(watch.told, "011 001 000 ");
}

TEST_F(EventRunnerTest, aFolderAndWhatIsInItMayBothBeNamed) {
  const std::string inside = volume.file("folder/sub/file", "x");
  HelperDictionary event{{volume.path("folder"), HelperDictionary()}, {inside, HelperDictionary()}};
  // The folder is removed first, and the file with it; the sender still saw both.
  EXPECT_TRUE(run(HelperHanldeEventID::Delete, event).flag);
  EXPECT_EQ(statusOf(volume.path("folder")), Status::Success);
  EXPECT_EQ(statusOf(inside), Status::Success);
  EXPECT_TRUE(run(HelperHanldeEventID::Delete, event).flag) << "now both sides find nothing";
}

TEST_F(EventRunnerTest, onlyWhatWentWithItsFolderIsDoneUnseen) {
  // In the order of bytes the two others come between the folder and its contents.
  const std::string inside = volume.file("folder/file", "x");
  const std::string kept = volume.file("folder.kept/file", "x");
  const std::string beside = volume.file("folder!", "x");
  const std::string vanished = volume.path("folder.kept/vanished");
  const SenderView seen = viewOf(inside);
  volume.setOwner("folder.kept/file", kThird);
  std::vector<SenderView> views;
  const HelperDictionary event{{volume.path("folder"), HelperDictionary()},
                               {beside, HelperDictionary()},
                               {volume.path("folder.kept"), HelperDictionary()},
                               {vanished, HelperDictionary()},
                               {inside, HelperDictionary()}};
  for (const auto& [path, numbers] : event) views.push_back(path == vanished ? seen : viewOf(path));
  EXPECT_FALSE(run(HelperHanldeEventID::Delete, event, views).flag);
  EXPECT_EQ(statusOf(volume.path("folder")), Status::Success);
  EXPECT_EQ(statusOf(beside), Status::Success);
  EXPECT_EQ(statusOf(inside), Status::Success);
  EXPECT_EQ(statusOf(volume.path("folder.kept")), Status::DeleteError);
  EXPECT_EQ(statusOf(vanished), Status::DeleteError) << "its folder is still there";
  EXPECT_TRUE(isThere(kept));
}

TEST_F(EventRunnerTest, cleanDeletesAndMoveMovesAndTheOperationIsNoPath) {
  const std::string file = volume.file("file", "x");
  EXPECT_TRUE(maintain(HelperOperationID::Clean, {{file, HelperDictionary()}}).flag);
  EXPECT_EQ(order, std::vector<std::string>{file});
  EXPECT_FALSE(isThere(file));
  const std::string source = volume.file("source", "x");
  EXPECT_FALSE(
      maintain(HelperOperationID::Move, {{source, HelperDictionary{{"ToPath", "/etc/cron.d/x"}}}}).flag);
  EXPECT_EQ(statusOf(source), Status::MoveFail);
  EXPECT_FALSE(maintain(HelperOperationID::Move, {{source, HelperDictionary()}}).flag);
  EXPECT_TRUE(isThere(source));
  EXPECT_FALSE(maintain(static_cast<HelperOperationID>(4), {{source, HelperDictionary()}}).flag);
  EXPECT_TRUE(isThere(source));
}

TEST_F(EventRunnerTest, moveWorksAsAnEvent) {
  const std::string told = test::inMountingChild([&]() -> std::string {
    const std::string point = volume.folder("volume");
    if (::mount("volume", point.c_str(), "tmpfs", 0, "mode=755") != 0) return "skip";
    ::umask(022);
    const std::string source = volume.file("volume/Library/Internet Plug-Ins/a.plugin", "x");
    const std::string target = point + "/Library/Internet Plug-Ins Disabled/a.plugin";
    const bool flag =
        maintain(HelperOperationID::Move, {{source, HelperDictionary{{"ToPath", target}}}}).flag;
    return flag && isThere(target) && !isThere(source) ? "moved" : descOf(source);
  });
  if (told == "skip") GTEST_SKIP() << "nothing can be mounted here";
  EXPECT_EQ(told, "moved");
}

TEST_F(EventRunnerTest, placesThatTheAdministratorRefusesStay) {
  const std::string inside = volume.file("kept/folder/file", "x");
  const std::string beside = volume.file("beside", "x");
  configuration.refusedPlaces = {volume.path("kept/folder"), volume.path("none")};
  removeAll({inside, volume.path("kept/folder"), volume.path("kept"), beside});
  EXPECT_TRUE(isRefused(inside));
  EXPECT_TRUE(isRefused(volume.path("kept/folder")));
  EXPECT_TRUE(isThere(inside));
  EXPECT_FALSE(isThere(beside));
  shredAll({inside});
  EXPECT_TRUE(isRefused(inside));
  EXPECT_EQ(test::contentOf(inside), "x");
}

TEST_F(EventRunnerTest, aFaultyConfigurationRefusesEveryEventAndSaysWhy) {
  const std::string file = volume.file("file", "x");
  configuration.fault = "line 3 makes no sense";
  const std::string text = std::string(kFaultyConfigurationText) + "line 3 makes no sense";
  EXPECT_FALSE(removeAll({file}).flag);
  EXPECT_EQ(statusOf(file), Status::DeleteError);
  EXPECT_EQ(descOf(file), text);
  EXPECT_FALSE(shredAll({file}).flag);
  EXPECT_EQ(statusOf(file), Status::ShreadFail);
  EXPECT_FALSE(maintain(HelperOperationID::Clean, {{file, HelperDictionary()}}).flag);
  EXPECT_EQ(descOf(file), text);
  EXPECT_FALSE(maintain(HelperOperationID::Move, {{file, HelperDictionary{{"ToPath", "/x"}}}}).flag);
  EXPECT_EQ(statusOf(file), Status::MoveFail);
  EXPECT_EQ(descOf(file), text);
  EXPECT_FALSE(maintain(HelperOperationID::CleanDNS, {}).flag);
  EXPECT_EQ(test::contentOf(file), "x");
}

TEST_F(EventRunnerTest, aFileSystemThatNeverAnswersIsRefusedWithoutAQuestion) {
  const std::string file = volume.file("file", "x");
  const std::string inside = volume.path("silent/file");
  const std::string told = test::inMountingChild([&]() -> std::string {
    const FileDescriptor server = test::mountSilentFileSystem(volume.folder("silent"));
    if (!server.isOpen()) return "skip";
    // With explicit views: computing them would block this process too.
    const HelperDictionary event{{file, HelperDictionary()}, {inside, HelperDictionary()}};
    const std::vector<SenderView> views{{Seen::CouldNotLook, 0, 0}, {Seen::CouldNotLook, 0, 0}};
    std::string text;
    for (const auto kind : {HelperHanldeEventID::Shred, HelperHanldeEventID::Delete}) {
      run(kind, event, views);
      text += isRefused(inside) ? "refused " : descOf(inside) + " ";
      text += isThere(file) ? "there " : "gone ";
    }
    return text;
  });
  if (told == "skip") GTEST_SKIP() << "nothing can be mounted here";
  EXPECT_EQ(told, "refused gone refused gone ");
}

TEST_F(EventRunnerTest, typesThatTheAdministratorAllowsAreWorkedOn) {
  // All local types are in the table, so a refused one is allowed here: ramfs.
  const std::string told = test::inMountingChild([&]() -> std::string {
    if (::mount("other", volume.folder("other").c_str(), "ramfs", 0, nullptr) != 0) return "skip";
    const std::string file = volume.file("other/file", "x");
    removeAll({file});
    const std::string before = isRefused(file) && isThere(file) ? "refused, " : "not refused, ";
    configuration.allowedFileSystems = {"ramfs"};
    return before + (removeAll({file}).flag && !isThere(file) ? "gone" : "there");
  });
  if (told == "skip") GTEST_SKIP() << "nothing can be mounted here";
  EXPECT_EQ(told, "refused, gone");
}

TEST_F(EventRunnerTest, leavesNoDescriptorOpen) {
  const std::string file = volume.file("file", "x");
  const std::string folder = volume.chain("top", "d", 100);
  const std::size_t before = test::openDescriptors();
  removeAll({file, folder, "/etc/passwd", volume.path("none"), volume.path("none/x")});
  shredAll({volume.file("file", "x"), volume.folder("empty")});
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(EventRunnerTest, aHundredThousandPathsNeedNoMemoryOfTheirOwn) {
  if (test::kIsMemoryDistorted) GTEST_SKIP() << "a checker takes memory of its own";
  // Each is a path that is looked up and refused; the event itself is made before.
  const std::string told = test::inChild([&]() -> std::string {
    HelperMessage message{HelperMessage::Kind::Event, HelperDictionary(), {}};
    for (int i = 0; i < 100'000; ++i) {
      message.dictionary->emplace("/etc/none/" + std::to_string(i) + std::string(90, 'x'),
                                  HelperDictionary{{"0", i}});
      message.views.push_back({Seen::Absent, 0, 0});
    }
    const std::string bytes = encodeHelperMessage(message).value_or("");
    struct Count : ResultSink {
      std::size_t refused = 0;
      void result(std::size_t, Status, std::string_view desc) override {
        refused += desc == kRefusedItemText ? 1 : 0;
      }
    } count;
    rusage before{};
    ::getrusage(RUSAGE_SELF, &before);
    runEvent({EventForm{HelperHanldeEventID::Delete, {}, 100'000}, caller,
              MessageView::of(bytes, HelperMessage::Kind::Event).value(), configuration},
             count);
    rusage after{};
    ::getrusage(RUSAGE_SELF, &after);
    return std::to_string(count.refused) + (after.ru_maxrss - before.ru_maxrss < 4096 ? " flat" : " grown");
  });
  EXPECT_EQ(told, "100000 flat");
}

// Concurrent changes by other processes, and arbitrary events.

TEST_F(EventRunnerTest, swappedFilesAndLinksNeverLeadOut) {
  const std::string canary = volume.file("canary/item", "precious");
  const auto before = test::snapshotOf(volume.path("canary"));
  volume.folder("work");
  const std::string item = volume.path("work/item");
  const std::string link = volume.link("work/link", canary);
  std::atomic<bool> isDone{false};
  std::thread swapper([&] {
    while (!isDone) {
      ::syscall(SYS_renameat2, AT_FDCWD, item.c_str(), AT_FDCWD, link.c_str(), 2U /* RENAME_EXCHANGE */);
    }
  });
  for (int round = 0; round < 300; ++round) {
    if (!isThere(item)) volume.file("work/item", "x");
    if (!isThere(link)) static_cast<void>(::symlink(canary.c_str(), link.c_str()));
    const HelperDictionary event{{item, HelperDictionary()}};
    run(round % 2 == 0 ? HelperHanldeEventID::Shred : HelperHanldeEventID::Delete, event,
        {{Seen::CouldNotLook, 0, 0}});
  }
  isDone = true;
  swapper.join();
  EXPECT_EQ(test::snapshotOf(volume.path("canary")), before);
}

/// A random tree of files, folders, links and hard links of three owners, and random events about it.
class RandomTree {
 public:
  RandomTree(const test::TemporaryVolume& volume, std::uint32_t seed) : volume_(volume), random_(seed) {
    for (std::size_t i = 0; i < 30; ++i) add("t/" + name());
  }
  std::string anyPath() {
    std::string path = items_.at(below(items_.size()));
    switch (below(8)) {
      case 0:
        return path + "/none";
      case 1:
        return path + "/../x";
      case 2:
        return path + "/" + name();
      default:
        return path;
    }
  }
  std::size_t below(std::size_t end) { return random_() % end; }

 private:
  std::string name() {
    static const std::vector<std::string> kNames = {"a", "b", "c", "new\nline", "\xff", "-rf"};
    std::string name = kNames.at(below(kNames.size()));
    if (below(2) == 0) name += "/" + kNames.at(below(kNames.size()));
    return name;
  }
  void add(const std::string& name) {
    const std::string path = volume_.path(name);
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    if (error || viewOf(path).kind != Seen::Absent) return;
    make(path);
    if (viewOf(path).kind != Seen::Present) return;
    constexpr unsigned kOwners[] = {0, 0, test::kKnownUser, test::kKnownUser, 10003};
    ASSERT_EQ(::lchown(path.c_str(), kOwners[below(5)], 0), 0);
    items_.push_back(path);
  }
  void make(const std::string& path) {
    const std::string other = items_.empty() ? volume_.path("canary/file") : items_.at(below(items_.size()));
    switch (below(5)) {
      case 0:
        static_cast<void>(::mkdir(path.c_str(), 0755));
        break;
      case 1:
        static_cast<void>(::symlink(other.c_str(), path.c_str()));
        break;
      case 2:
        static_cast<void>(::link(volume_.path("canary/file").c_str(), path.c_str()));
        break;
      default:
        std::ofstream(path) << "content";
    }
  }

  const test::TemporaryVolume& volume_;
  std::mt19937 random_;
  std::vector<std::string> items_{volume_.path("t")};
};

/// The targets of an event's paths: root's links above an item are followed, other links are not.
std::set<std::string> namedBy(const HelperDictionary& event) {
  std::set<std::string> named;
  for (const auto& [path, value] : event) {
    if (!RemovalPolicy::isNormalPath(path)) continue;
    const PathWalk walk = PathWalk::toParentOf(path, [](std::uint32_t owner) { return owner == 0; });
    if (walk.error() != 0) continue;
    const auto folder = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(walk.end()));
    named.insert(folder.string() + "/" + walk.leaf());
  }
  return named;
}

bool isCovered(const std::string& path, const std::set<std::string>& named) {
  return std::ranges::any_of(
      named, [&path](const std::string& each) { return path == each || path.starts_with(each + "/"); });
}

TEST_F(EventRunnerTest, randomEventsChangeNothingThatTheyDoNotName) {
  for (std::uint32_t seed = 1; seed <= 150; ++seed) {
    SCOPED_TRACE(seed);
    const test::TemporaryVolume tree;
    tree.file("canary/file", "precious");
    RandomTree random(tree, seed);
    HelperDictionary event;
    for (std::size_t i = random.below(6) + 1; i > 0; --i) event[random.anyPath()] = HelperDictionary();
    const bool isShred = random.below(2) == 0;
    const std::set<std::string> named = namedBy(event);
    const auto before = test::snapshotOf(tree.path());
    run(isShred ? HelperHanldeEventID::Shred : HelperHanldeEventID::Delete, event);
    EXPECT_EQ(results.size(), event.size());
    std::map<std::string, test::TreeEntry> after;
    for (const test::TreeEntry& entry : test::snapshotOf(tree.path())) after[entry.path] = entry;
    for (const test::TreeEntry& entry : before) {
      const std::string path = tree.path(entry.path);
      if (isCovered(path, named)) continue;
      const auto left = after.find(entry.path);
      ASSERT_NE(left, after.end()) << path << " is gone";
      // A folder's times and size change with its contents.
      EXPECT_TRUE(S_ISDIR(entry.mode) || left->second == entry) << path << " has changed";
    }
    EXPECT_EQ(test::contentOf(tree.path("canary/file")), "precious");
    for (const auto& [path, result] : results) {
      EXPECT_EQ(result.isSuccess() && isThere(path), false) << path << " is still there";
      EXPECT_EQ(result.desc.empty(), result.isSuccess()) << path;
    }
    EXPECT_LE(after.size(), before.size());
  }
}

}  // namespace
}  // namespace sorrel::helper
