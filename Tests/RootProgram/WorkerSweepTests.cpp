// Kills the worker of the root program at many points of an event of a thousand paths, and makes its system
// calls fail, and compares the reply with the disk. SORREL_KILL_POINTS sets the number of points. The faults
// are divided into 8 parts; SORREL_ERRNO_PARTS sets how many of them are tried, 8 for all.

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <TestPlaces.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Helper/PathResult.hpp"
#include "Tests/Helper/HelperServiceKit.hpp"
#include "Tests/Support/CleanKit.hpp"
#include "Tests/Support/NumberFrom.hpp"
#include "Tests/Support/ScopedVariable.hpp"
#include "Tests/Support/SystemCallFaults.hpp"

namespace sorrel {
namespace {

namespace fs = std::filesystem;
using test::CallFault;
using test::HelperMachine;
using Names = std::vector<std::string>;

/// A helper whose workers get that fault.
HelperMachine::Setup with(const CallFault& fault) {
  HelperMachine::Setup setup;
  setup.tracer = SORREL_FAULTY_RUN;
  for (const std::uint64_t number : {static_cast<std::uint64_t>(fault.call), fault.when, fault.step}) {
    setup.tracer += ' ' + std::to_string(number);
  }
  setup.tracer += ' ' + std::to_string(fault.error);
  return setup;
}

/// The reply for a path, in the order of the paths, and what is left of the item.
struct Account {
  bool isSuccess = false;
  std::string desc;
  bool isThere = false;
  bool isWhole = false;
};

/// A machine, and files, folders and links to be removed by one event, among others that it does not name.
class WorkerEvent {
 public:
  WorkerEvent(int paths, const CallFault& fault) : machine_(with(fault)) {
    makeFile("canary/file");
    for (int i = 0; i < paths; ++i) {
      names_.push_back("work/" + std::to_string(1000 + i));
      makeItem(names_.back(), i);
      if (i % 50 == 0) makeFile(names_.back() + "-beside");
      event_.emplace(pathOf(names_.back()), HelperDictionary{{"0", i}});
    }
    before_ = test::snapshotOf(machine_.folder().path("disk"));
  }

  /// Empty without a well-formed reply; checks that only items named by the event have changed.
  std::vector<Account> send() {
    const test::Answer answer = machine_.ask(test::kDelete, event_);
    EXPECT_TRUE(answer.isThere) << machine_.log();
    EXPECT_EQ(answer.dictionary.size(), event_.size());
    if (answer.dictionary.size() != event_.size()) return {};
    std::vector<Account> accounts(names_.size());
    std::set<std::int64_t> numbers;
    for (const auto& [key, value] : answer.dictionary) {
      const HelperDictionary& entry = *value.asDictionary();
      numbers.insert(*entry.at("0").asNumber());
      Account& account = accounts.at(static_cast<std::size_t>(*entry.at("0").asNumber()));
      account.isSuccess = *entry.at("DeleteStatus").asNumber() == 0;
      if (!account.isSuccess) account.desc = *entry.at("DeleteDesc").asText();
    }
    EXPECT_EQ(numbers.size(), names_.size());
    EXPECT_EQ(answer.flag, std::ranges::all_of(accounts, &Account::isSuccess));
    lookAtDisk(accounts);
    return accounts;
  }

  [[nodiscard]] HelperMachine& machine() { return machine_; }

 private:
  [[nodiscard]] std::string pathOf(const std::string& name) const {
    return machine_.folder().path("disk/" + name);
  }
  void makeFile(const std::string& name) const { machine_.folder().file("disk/" + name, name); }
  void makeItem(const std::string& name, int number) const {
    if (number % 4 == 1) {
      for (const char* below : {"/a", "/b", "/sub/c"}) makeFile(name + below);
      fs::create_symlink("../../canary", pathOf(name + "/link"));
    } else if (number % 10 == 2) {
      fs::create_symlink("../canary/file", pathOf(name));
    } else {
      makeFile(name);
    }
  }

  void lookAtDisk(std::vector<Account>& accounts) const {
    std::set<std::string> touched;
    for (const std::string& path :
         test::goneBetween(before_, test::snapshotOf(machine_.folder().path("disk")))) {
      touched.insert(path.substr(0, path.find('/', path.find('/') + 1)));
    }
    for (std::size_t i = 0; i < names_.size(); ++i) {
      accounts[i].isThere = fs::symlink_status(pathOf(names_[i])).type() != fs::file_type::not_found;
      accounts[i].isWhole = touched.erase(names_[i]) == 0;
    }
    EXPECT_TRUE(touched.empty()) << *touched.begin();
  }

  HelperMachine machine_;
  Names names_;
  HelperDictionary event_;
  std::vector<test::TreeEntry> before_;
};

std::size_t count(const std::string& text, const std::string& part) {
  std::size_t found = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++found;
  return found;
}

class WorkerSweep : public test::HelperServiceKit {
 protected:
  void SetUp() override {
    HelperServiceKit::SetUp();
    if (IsSkipped()) return;
    // The machine has a file system in memory there.
    folder_.emplace("TMPDIR", "/mnt");
  }

 private:
  std::optional<test::ScopedVariable> folder_;
};

/// Kills the worker of an event of that many paths as it makes this call, counted from 1.
void killAt(int paths, int call, std::uint64_t when) {
  SCOPED_TRACE("call " + std::to_string(call) + " number " + std::to_string(when));
  WorkerEvent event(paths, {call, when, CallFault::kKilled});
  const std::vector<Account> accounts = event.send();
  const auto firstLost = std::ranges::find_if_not(accounts, &Account::isSuccess);
  ASSERT_NE(firstLost, accounts.end());
  for (auto account = accounts.begin(); account != firstLost; ++account) EXPECT_FALSE(account->isThere);
  // The item at which it died may be gone, completely or in part, but without a result; the others were never
  // begun.
  for (auto account = firstLost; account != accounts.end(); ++account) {
    EXPECT_FALSE(account->isSuccess);
    EXPECT_NE(account->desc, "");
    EXPECT_TRUE(account == firstLost || account->isWhole);
  }
  const pid_t helper = event.machine().helper();
  EXPECT_TRUE(event.machine().ask(test::kDelete, test::kNowhere).isThere);
  EXPECT_EQ(event.machine().helper(), helper);
  const std::string log = event.machine().log();
  EXPECT_EQ(count(log, "paths=" + std::to_string(paths) + " start"), 1U);
  EXPECT_EQ(count(log, " killed\n"), 1U) << log;
}

using WorkerKillSweep = WorkerSweep;

TEST_F(WorkerKillSweep, aWorkerKilledAnywhereGivesOneReplyThatIsTrue) {
  constexpr unsigned kPaths = 1000;
  // Every fourth path is a folder of six items. Each result is one write, and one write comes before them.
  constexpr unsigned kRemovals = kPaths + kPaths / 4 * 5;
  constexpr unsigned kWrites = kPaths + 1;
  const std::uint64_t points = std::max<std::uint64_t>(test::numberFrom("SORREL_KILL_POINTS", 8), 2);
  for (std::uint64_t i = 0; i < points && !HasFailure(); ++i) {
    const bool isRemoval = i % 2 == 0;
    const unsigned calls = isRemoval ? kRemovals : kWrites;
    killAt(kPaths, isRemoval ? SYS_unlinkat : SYS_write, 1 + i * (calls - 1) / (points - 1));
  }
}

/// Every `step`-th call fails. The steps are prime, so that they hit every step of the work for a path.
struct FailingCalls {
  int call;
  std::uint64_t step;
};

/// Before it touches a path, the worker looks up the protected paths.
constexpr std::array kFromTheBeginning = {FailingCalls{SYS_unlinkat, 7},   FailingCalls{SYS_openat, 7},
                                          FailingCalls{SYS_openat2, 7},    FailingCalls{SYS_statx, 7},
                                          FailingCalls{SYS_newfstatat, 7}, FailingCalls{SYS_getdents64, 7},
                                          FailingCalls{SYS_close, 7},      FailingCalls{SYS_lseek, 7}};
constexpr std::array kAmongThePaths = {FailingCalls{SYS_openat, 7}, FailingCalls{SYS_openat2, 11},
                                       FailingCalls{SYS_statx, 101}};

/// The results of one event.
struct RunEvent {
  std::vector<Account> accounts;
  std::uint64_t failures = 0;  ///< of paths
  std::uint64_t faults = 0;
  std::uint64_t calls = 0;
};

RunEvent runWith(int paths, const CallFault& fault) {
  WorkerEvent event(paths, fault);
  RunEvent run;
  run.accounts = event.send();
  for (const Account& account : run.accounts) {
    EXPECT_EQ(account.isSuccess, !account.isThere);
    EXPECT_EQ(account.isSuccess, account.desc.empty());
    run.failures += account.isSuccess ? 0 : 1;
  }
  event.machine().kill(SIGTERM);
  EXPECT_TRUE(event.machine().waitForLog("calls="));
  const std::string log = event.machine().log();
  run.faults = std::strtoull(log.c_str() + log.find("faults=") + 7, nullptr, 10);
  run.calls = std::strtoull(log.c_str() + log.find("calls=") + 6, nullptr, 10);
  return run;
}

/// While a protected path can't be looked up, everything is refused.
bool isRefusedWhole(const RunEvent& event) {
  return std::ranges::all_of(
      event.accounts, [](const Account& one) { return one.desc == helper::kRefusedItemText && one.isWhole; });
}

constexpr std::array kErrors = {EIO, EACCES, EBUSY, EROFS, ENOENT, ENOMEM, EINTR, ESTALE};
static_assert(kFromTheBeginning.size() == kErrors.size());  // so that a part has each call and each error

class WorkerErrnoSweep : public WorkerSweep {
 protected:
  void failFromTheBeginning(const FailingCalls& calls, int error) {
    const RunEvent event = fail(calls, 1, error);
    EXPECT_TRUE(event.failures <= event.faults || isRefusedWhole(event));
  }
  void failAmongThePaths(const FailingCalls& calls, int error) {
    if (!callsBefore_.contains(calls.call)) {
      callsBefore_[calls.call] = runWith(1, {calls.call}).calls;
      EXPECT_GT(callsBefore_[calls.call], 0U);
    }
    const RunEvent event = fail(calls, callsBefore_[calls.call] + 10, error);
    EXPECT_LE(event.failures, event.faults);
    EXPECT_LT(event.failures, event.accounts.size());
  }

  std::uint64_t faults_ = 0;

 private:
  RunEvent fail(const FailingCalls& calls, std::uint64_t first, int error) {
    SCOPED_TRACE("call " + std::to_string(calls.call) + " failing with " + std::to_string(error) + " from " +
                 std::to_string(first));
    RunEvent event = runWith(250, {calls.call, first, error, calls.step});
    EXPECT_GT(event.faults, 0U);
    faults_ += event.faults;
    return event;
  }

  std::map<int, std::uint64_t> callsBefore_;  // of a worker, before it touches a path
};

TEST_F(WorkerErrnoSweep, aWorkerWhoseCallsFailTellsTheTruthOfEachPath) {
  const auto parts = std::min<std::size_t>(test::numberFrom("SORREL_ERRNO_PARTS", 1), kErrors.size());
  for (std::size_t part = 0; part < parts && !HasFailure(); ++part) {
    for (std::size_t i = 0; i < kErrors.size(); ++i) {
      const int error = kErrors[(i + part) % kErrors.size()];
      failFromTheBeginning(kFromTheBeginning[i], error);
      if (i < kAmongThePaths.size()) failAmongThePaths(kAmongThePaths[i], error);
    }
  }
  std::cout << faults_ << " faults in " << parts << " parts\n";
}

}  // namespace
}  // namespace sorrel
