// Makes every system call of a removal, and of a clean, fail with every errno that a file system returns, one
// at a time. The faults of a clean are divided into 83 parts; SORREL_ERRNO_PARTS sets how many of them are
// tried, 83 for all.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "SorrelFramework/Removal/TreeRemoval.hpp"
#include "Tests/Support/CleanKit.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/NumberFrom.hpp"
#include "Tests/Support/ProcessState.hpp"
#include "Tests/Support/SystemCallFaults.hpp"
#include "Tests/Support/TreeRemoval.hpp"

namespace sorrel {
namespace {

using test::CallFault;
using Names = std::vector<std::string>;

constexpr int kErrors[] = {EIO,       ENOSPC, EDQUOT, EACCES, EPERM, EBUSY, EROFS, ENOENT,
                           ENOTEMPTY, EMFILE, ENFILE, ENOMEM, EINTR, ELOOP, ESTALE};
/// These errors report that a path is missing or unreachable, and if that is true there is nothing to
/// protect.
const std::set<int> kTellingOfNoPlace = {EACCES, EPERM, ENOENT, ELOOP, ESTALE};

/// Memory, threads and the process's own state; all other calls concern files.
const std::set<int> kOtherCalls = {SYS_brk,          SYS_mmap,
                                   SYS_munmap,       SYS_mremap,
                                   SYS_mprotect,     SYS_madvise,
                                   SYS_clone,        SYS_clone3,
                                   SYS_exit,         SYS_exit_group,
                                   SYS_futex,        SYS_rseq,
                                   SYS_prctl,        SYS_rt_sigprocmask,
                                   SYS_rt_sigaction, SYS_rt_sigreturn,
                                   SYS_sched_yield,  SYS_getpid,
                                   SYS_gettid,       SYS_geteuid,
                                   SYS_getuid,       SYS_set_robust_list,
                                   SYS_sigaltstack,  SYS_getrandom,
                                   SYS_prlimit64,    SYS_sched_getaffinity};

bool isThere(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

/// An operation that is repeated with another fault each time.
class Scene {
 public:
  Scene() = default;
  virtual ~Scene() = default;
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  virtual void prepare() = 0;
  virtual void work() = 0;
  /// Checks, by expectations, the result of the operation under a fault with this errno.
  virtual void judge(int error) = 0;
};

std::string textOf(const CallFault& fault) {
  return "system call " + std::to_string(fault.call) + " number " + std::to_string(fault.when) +
         " failed with " + std::to_string(fault.error);
}

/// The faults of one scene, counted.
class Sweep {
 public:
  /// Part number `part` of `parts`.
  Sweep(Scene& scene, unsigned part, unsigned parts) : scene_(scene), part_(part), parts_(parts) {}

  /// The fault found, "" if there is none; "skip" where calls can't be watched.
  std::string run(int error) {
    scene_.prepare();
    const auto calls = test::runWithFault({}, [this] { scene_.work(); });
    if (!calls) return "skip";
    scene_.judge(0);
    if (testing::Test::HasFailure()) return "without a fault";
    for (const auto& call : *calls) {
      if (kOtherCalls.contains(call.first)) continue;
      bool wasHit = true;
      for (std::uint64_t when = 1; wasHit; ++when) {
        if (ordinal_++ % parts_ != part_) continue;
        const CallFault fault{call.first, when, error};
        wasHit = tryOne(fault);
        if (testing::Test::HasFailure()) return textOf(fault);
      }
    }
    return "";
  }

  [[nodiscard]] unsigned runs() const { return runs_; }

 private:
  /// False if the call was not made that often.
  bool tryOne(const CallFault& fault) {
    scene_.prepare();
    const auto calls = test::runWithFault(fault, [this] { scene_.work(); });
    scene_.judge(fault.error);
    const auto made = calls->find(fault.call);
    if (made == calls->end() || made->second < fault.when) return false;
    ++runs_;
    return true;
  }

  Scene& scene_;
  const unsigned part_;
  const unsigned parts_;
  unsigned ordinal_ = 0;
  unsigned runs_ = 0;
};

/// One removal of a small tree, through a link.
class RemovalScene : public Scene {
 public:
  explicit RemovalScene(RemovalPolicy policy) : policy_(std::move(policy)) {
    // The policy opens the mount table at its first query and keeps it open.
    volume_.file("first/file", "x");
    EXPECT_TRUE(removeItem(volume_.path("first"), policy_).isSuccess());
    volume_.file("canary/file", "precious");
    volume_.file("work/beside", "precious");
    volume_.link("alias", "work");
  }

  void prepare() override {
    ASSERT_TRUE(test::removeTree(item_));
    volume_.file("work/item/a", "x");
    volume_.link("work/item/link", "../../canary");
    volume_.fifo("work/item/fifo");
    volume_.file("work/item/sub/b", "x");
    volume_.file("work/item/sub/deep/c", "x");
    volume_.folder("work/item/empty");
    ASSERT_EQ(::link(volume_.path("canary/file").c_str(), volume_.path("work/item/name").c_str()), 0);
    before_ = test::snapshotOf(volume_.path());
    descriptors_ = test::openDescriptors();
  }

  void work() override { result_ = removeItem(volume_.path("alias/item"), policy_); }

  void judge(int error) override {
    EXPECT_EQ(test::openDescriptors(), descriptors_);
    EXPECT_EQ(result_.isSuccess(), !isThere(item_));
    if (error == 0) {
      EXPECT_TRUE(result_.isSuccess());
    }
    for (const std::string& path : test::goneBetween(before_, test::snapshotOf(volume_.path()))) {
      EXPECT_TRUE(path == "work/item" || path.starts_with("work/item/")) << path;
    }
  }

 private:
  const test::TemporaryVolume volume_;
  const std::string item_ = volume_.path("work/item");
  const RemovalPolicy policy_;
  std::vector<test::TreeEntry> before_;
  std::size_t descriptors_ = 0;
  RemovalResult result_;
};

/// The part of the tree that a clean may change; it writes a log if the helper is not available.
std::vector<test::TreeEntry> snapshotBesideTheLog(const std::string& path) {
  std::vector<test::TreeEntry> entries = test::snapshotOf(path);
  std::erase_if(entries, [](const auto& entry) { return entry.path.starts_with("Users/alice/Library"); });
  return entries;
}

/// A whole clean: items that it may remove, items without a tick, and items that policy and fence protect.
class CleanScene : public Scene {
 public:
  CleanScene() {
    stage_.volume.link("way-out", other_.path());
    stage_.volume.folder("current");
    ::setenv("HOME", stage_.volume.path("home").c_str(), 1);
    EXPECT_EQ(::chdir(stage_.volume.path("current").c_str()), 0);
    stage_.setHelper(helper_);
  }

  void prepare() override {
    for (const char* name : {"file", "off", "d/x", "d/y", "package/a", "package/sub/b", "for-helper"}) {
      stage_.volume.file(name, name);
    }
    stage_.volume.folder("home");
    stage_.volume.folder("Users/bob");
    if (!isThere(stage_.volume.path("link"))) stage_.volume.link("link", "off");
    other_.file("secret", "precious");
    taken_ = {leaf("file"), leaf("package"), leaf("link"), leaf("d/x")};
    kept_ = {leaf("home"), leaf("Users/bob"), leaf("current"), leaf("way-out/secret"),
             leaf("for-helper", false)};
    const auto folder = test::makeRecord({stage_.volume.url("d/"),
                                          NSControlStateValueMixed,
                                          2,
                                          true,
                                          {taken_[3], leaf("d/y", true, NSControlStateValueOff)}});
    std::vector<Ref<FileInformation>> records(taken_.begin(), taken_.begin() + 3);
    records.insert(records.end(), kept_.begin(), kept_.end());
    records.push_back(folder);
    records.push_back(leaf("off", true, NSControlStateValueOff));
    categorys_ = {test::makeCategory(stage_.feature, NSControlStateValueMixed, records)};
    finish_ = std::make_shared<test::FinishRecord>();
    events_ = helper_->events().size();
    before_ = snapshotBesideTheLog(stage_.volume.path());
    beforeOutside_ = test::snapshotOf(other_.path());
  }

  void work() override {
    CleanService::cleanCategorys(categorys_, CleanServiceType::Common, finish_);
    hasFinished_ = finish_->waitUntilFinished();
  }

  void judge(int error) override {
    EXPECT_TRUE(hasFinished_);
    EXPECT_EQ(finish_->finishCount(), 1U);
    EXPECT_EQ(finish_->percents, (std::vector<float>{0.25F, 0.5F, 0.75F}));
    for (const auto& record : taken_) {
      expectTrueStatus(*record);
      if (error == 0) {
        EXPECT_EQ(record->deleteStatus, rawValue(DeleteStatus::DeleteSuccess));
      }
    }
    const bool isUnreachable = kTellingOfNoPlace.contains(error);
    for (const std::string& path : test::goneBetween(before_, snapshotBesideTheLog(stage_.volume.path()))) {
      EXPECT_TRUE(path == "file" || path == "link" || path == "d/x" || path.starts_with("package") ||
                  (isUnreachable && (path == "home" || path == "Users/bob")))
          << path;
    }
    EXPECT_EQ(test::snapshotOf(other_.path()), beforeOutside_);
    expectFenced(isUnreachable);
  }

 private:
  [[nodiscard]] Ref<FileInformation> leaf(const std::string& name, bool canDelete = true,
                                          Integer state = NSControlStateValueOn) const {
    return test::makeRecord({URL::fileURL(stage_.volume.path(name), false), state, 1, canDelete});
  }

  void expectTrueStatus(const FileInformation& leaf) const {
    const bool isGone = !isThere(leaf.url.path());
    EXPECT_EQ(leaf.deleteStatus, rawValue(isGone ? DeleteStatus::DeleteSuccess : DeleteStatus::DeleteError));
    const FileRecords& failed = finish_->finishes.at(0).abnormalFiles;
    const bool isTold = std::ranges::any_of(failed, [&](const auto& record) { return &*record == &leaf; });
    EXPECT_EQ(isTold, !isGone) << leaf.url.path();
    if (!isGone) {
      EXPECT_NE(leaf.deleteErrorDesc.find(leaf.url.lastPathComponent()), std::string::npos);
    }
  }

  /// The helper, which knows nothing of this process, got no item that the fence protects.
  void expectFenced(bool isUnreachable) const {
    const auto events = helper_->events();
    for (std::size_t i = events_; i < events.size(); ++i) {
      EXPECT_TRUE(isUnreachable || !events[i].dictionary.contains(stage_.volume.path("current")));
      EXPECT_FALSE(events[i].dictionary.contains(stage_.volume.path("way-out/secret")));
    }
  }

  test::CleanStage stage_;
  const test::TemporaryFolder other_;
  /// Answers without a result for any path.
  const std::shared_ptr<test::ScriptedHelper> helper_ = std::make_shared<test::ScriptedHelper>(
      [](const auto&) { return std::optional(test::ScriptedHelper::Reply()); },
      test::ScriptedHelper::Thread::Caller);
  std::vector<Ref<FileInformation>> taken_;
  std::vector<Ref<FileInformation>> kept_;
  std::vector<Ref<CategoryInformation>> categorys_;
  std::shared_ptr<test::FinishRecord> finish_;
  std::size_t events_ = 0;
  std::vector<test::TreeEntry> before_;
  std::vector<test::TreeEntry> beforeOutside_;
  bool hasFinished_ = false;
};

/// Runs in a child with a file system in memory; the result ends in the number of faults if all is well.
template <class Work>
void expectRight(const Work& work, const std::string& what) {
  unsigned runs = 0;
  for (const int error : kErrors) {
    const std::string told = test::inMemoryChild([&]() -> std::string {
      Work copy = work;
      unsigned count = 0;
      const std::string wrong = copy(error, count);
      return wrong.empty() ? "ok " + std::to_string(count) : wrong;
    });
    if (told == "skip") GTEST_SKIP() << "no system calls can be watched here";
    ASSERT_TRUE(told.starts_with("ok ")) << told;
    runs += static_cast<unsigned>(std::stoul(told.substr(3)));
  }
  EXPECT_GT(runs, 0U);
  std::cout << runs << " faults in " << what << '\n';
}

std::string sweepRemoval(RemovalPolicy policy, int error, unsigned& runs) {
  RemovalScene scene(std::move(policy));
  Sweep sweep(scene, 0, 1);
  std::string wrong = sweep.run(error);
  runs = sweep.runs();
  return wrong;
}

TEST(ErrnoSweep, removalForAUserIsTrueUnderEveryFault) {
  expectRight([](int error, unsigned& runs) { return sweepRemoval(RemovalPolicy::forUser(), error, runs); },
              "a removal for a user");
}

TEST(ErrnoSweep, removalForAHelperIsTrueUnderEveryFault) {
  if (::geteuid() != 0) GTEST_SKIP() << "a helper runs as root, and follows only root's links";
  expectRight([](int error,
                 unsigned& runs) { return sweepRemoval(RemovalPolicy::forHelper(::geteuid()), error, runs); },
              "a removal for a helper");
}

/// If the system lacks openat2(2), the process does not call it again.
TEST(ErrnoSweep, removalOnAnOldSystemIsTrueUnderEveryFault) {
  expectRight(
      [](int error, unsigned& runs) {
        RemovalScene scene(RemovalPolicy::forUser());
        scene.prepare();
        const auto calls = test::runWithFault({SYS_openat2, 1, ENOSYS}, [&] { scene.work(); });
        if (!calls) return std::string("skip");
        scene.judge(0);
        return sweepRemoval(RemovalPolicy::forUser(), error, runs);
      },
      "a removal without openat2");
}

TEST(ErrnoSweep, cleanIsTrueUnderEveryFault) {
  constexpr unsigned kParts = 83;
  const auto parts =
      static_cast<unsigned>(std::min<std::uint64_t>(kParts, test::numberFrom("SORREL_ERRNO_PARTS", 1)));
  for (unsigned part = 0; part < parts && !HasFatalFailure() && !IsSkipped(); ++part) {
    expectRight(
        [part](int error, unsigned& runs) {
          CleanScene scene;
          Sweep sweep(scene, part, kParts);
          std::string wrong = sweep.run(error);
          runs = sweep.runs();
          return wrong;
        },
        "part " + std::to_string(part) + " of a clean");
  }
}

}  // namespace
}  // namespace sorrel
