// Many connections of three users that try to keep the root program from serving an authorised user's events.
// SORREL_LOAD_SECONDS and SORREL_LOAD_CONNECTIONS set the duration, and the number of connections.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <vector>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "Tests/Helper/HelperServiceKit.hpp"
#include "Tests/Helper/RawCaller.hpp"
#include "Tests/Support/Checkers.hpp"
#include "Tests/Support/NumberFrom.hpp"

namespace sorrel::helper {
namespace {

using namespace test;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// The connections of one user, in a process of its own: floods of calls that are refused, that announce
/// wrong sizes, that are not calls of the helper, and tickets that are never used.
class Attackers {
 public:
  /// With `isOnce` each connection makes one call and waits for ever.
  Attackers(const std::string& address, std::uint32_t uid, std::uint64_t connections, bool isOnce = false) {
    std::array<int, 2> ends{-1, -1};
    EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    sent_ = FileDescriptor(ends[0]);
    const FileDescriptor writer(ends[1]);
    process_ = ::fork();
    if (process_ == 0) attack(address, uid, connections, isOnce ? writer.get() : -1);
  }
  ~Attackers() {
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
  }
  [[nodiscard]] bool isAtWork() const { return ::waitpid(process_, nullptr, WNOHANG) == 0; }
  [[nodiscard]] bool waitUntilSent() const {
    char byte = 0;
    return ::read(sent_.get(), &byte, 1) == 1;
  }
  Attackers(const Attackers&) = delete;
  Attackers& operator=(const Attackers&) = delete;

 private:
  [[noreturn]] static void attack(const std::string& address, std::uint32_t uid, std::uint64_t connections,
                                  int sent) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const rlimit many{4096, 4096};
    ::setrlimit(RLIMIT_NOFILE, &many);
    ::setgroups(0, nullptr);
    if (::setresgid(uid, uid, uid) != 0 || ::setresuid(uid, uid, uid) != 0) ::_exit(1);
    try {
      std::vector<std::unique_ptr<RawCaller>> callers;
      for (std::uint64_t i = 0; i < connections; ++i) callers.push_back(std::make_unique<RawCaller>(address));
      if (sent >= 0) {
        for (const auto& caller : callers) caller->beginUnanswered({kDelete, -1, 1, HelperLimits::bytes});
        if (::write(sent, "x", 1) == 1) ::pause();
      }
      for (std::uint64_t i = 0;; ++i) flood(*callers[i % connections], i);
    } catch (const sdbus::Error& error) {
      std::cerr << "an attacker ended: " << error.what() << std::endl;
    }
    ::_exit(0);
  }
  static void flood(RawCaller& caller, std::uint64_t turn) {
    const std::uint64_t huge = HelperLimits::bytes;
    switch (turn % 5) {
      case 0:
        return static_cast<void>(caller.begin({kDelete, -1, 1, 100}));
      case 1:
        return static_cast<void>(caller.begin({kDelete, -1, 2'000'000, huge}));
      case 2:
        return static_cast<void>(caller.begin({kDelete, -1, 2'000'001, huge + 1}));
      case 3:
        return static_cast<void>(caller.call("NoSuchMethod", [](auto&) {}));
      default:
        return caller.beginUnanswered({kShred, -1, 7, 4096});
    }
  }
  pid_t process_ = -1;
  FileDescriptor sent_;
};

long memoryOf(pid_t process) { return std::atol(statusOf(process, "VmRSS").c_str()); }

class Load : public HelperServiceKit {
 protected:
  /// Root's events are authorised; polkit refuses all other connections.
  void SetUp() override {
    HelperServiceKit::SetUp();
    if (IsSkipped()) return;
    HelperMachine::Setup setup;
    setup.mode = ScriptedPolkit::Mode::YesToFirst;
    start(setup);
  }
  /// Duration of one of root's events.
  milliseconds timeOf(HelperProtocol& helper) {
    const Clock::time_point start = Clock::now();
    const Answer answer = take(send(helper, kDelete, kNowhere));
    EXPECT_TRUE(answer.isThere && answer.dictionary.size() == 1);
    if (answer.dictionary.size() == 1) {
      const auto& text = *answer.dictionary.begin()->second.asDictionary()->at("DeleteDesc").asText();
      EXPECT_EQ(text, quiet_.empty() ? text : quiet_);
      quiet_ = text;
    }
    return std::chrono::duration_cast<milliseconds>(Clock::now() - start);
  }

 private:
  std::string quiet_;  // the log line of an executed event
};

TEST_F(Load, anAuthorisedUsersEventsAreAnsweredInAFlood) {
  const std::uint64_t seconds = numberFrom("SORREL_LOAD_SECONDS", 3);
  const std::uint64_t callers = numberFrom("SORREL_LOAD_CONNECTIONS", 150);
  const auto held = helper();
  const milliseconds alone = timeOf(*held);
  const pid_t process = machine->helper();
  const long before = memoryOf(process);
  const std::vector<std::uint32_t> users = {kAlice, kBob, kCarol};
  std::vector<std::unique_ptr<Attackers>> attackers;
  // A connection uses several descriptors of its process, and a process has a thousand.
  constexpr std::uint64_t kOfProcess = 84;
  const std::uint64_t processes = std::max<std::uint64_t>(1, callers / users.size() / kOfProcess);
  const std::uint64_t each = callers / users.size() / processes;
  for (std::uint64_t i = 0; i < processes * users.size(); ++i) {
    const std::uint32_t uid = users[i % users.size()];
    attackers.push_back(std::make_unique<Attackers>(machine->address(), uid, each));
  }
  std::vector<milliseconds> times;
  const Clock::time_point end = Clock::now() + std::chrono::seconds(seconds);
  while (Clock::now() < end && !HasFailure()) times.push_back(timeOf(*held));
  ASSERT_FALSE(times.empty());
  for (const auto& some : attackers) EXPECT_TRUE(some->isAtWork());
  EXPECT_EQ(machine->helper(), process) << "the same one";
  EXPECT_EQ(*lost, 0);
  const long growth = memoryOf(process) - before;
  if (!kIsMemoryDistorted) {
    EXPECT_LT(growth, 16 * 1024) << "KiB";
  }
  std::ranges::sort(times);
  std::cout << times.size() << " events in the flood, " << alone.count() << " ms without one, "
            << times[times.size() / 2].count() << " ms in the middle, " << times.back().count()
            << " ms at most, memory +" << growth << " KiB, " << machine->polkit().questions().size()
            << " questions\n";
}

TEST_F(Load, manyConnectionsOfOneUserDelayNoOther) {
  const auto held = helper();
  timeOf(*held);
  machine->kill(SIGSTOP);
  const Attackers crowd(machine->address(), kAlice, 250, true);
  ASSERT_TRUE(crowd.waitUntilSent());
  auto waiting = send(*held, kDelete, kNowhere);
  const Clock::time_point start = Clock::now();
  machine->kill(SIGCONT);
  EXPECT_TRUE(take(std::move(waiting)).isThere);
  const auto time = std::chrono::duration_cast<milliseconds>(Clock::now() - start);
  RecordProperty("milliseconds", std::to_string(time.count()));
  std::cout << time.count() << " ms after the calls of 250 connections\n";
}

}  // namespace
}  // namespace sorrel::helper
