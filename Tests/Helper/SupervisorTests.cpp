#include "Helper/Supervisor.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "Tests/Support/ProcessState.hpp"

namespace sorrel::helper {
namespace {

using Error = HelperEventErrorID;

struct Ending {
  int count = 0;
  std::vector<int> statuses;  // -1 for unknown
  std::vector<std::string> texts;
  std::optional<EventOutcome> outcome;
  long peakMemory = 0;
};

class SupervisorTest : public testing::Test {
 protected:
  /// Runs an event of four paths with `run`; returns how it ended.
  Ending work(Supervisor::Run run) {
    Supervisor supervisor(std::move(run));
    Ending ending;
    EXPECT_TRUE(supervisor.start(1, job, noteIn(ending)));
    serveUntilDone(supervisor);
    return ending;
  }
  static Supervisor::Done noteIn(Ending& ending) {
    return [&ending](const Supervisor::Ending& end) {
      const ResultTable& results = end.results;
      ++ending.count;
      ending.outcome = end.outcome;
      ending.peakMemory = end.peakMemory;
      for (std::size_t i = 0; i < results.entries(); ++i) {
        ending.statuses.push_back(results.isKnown(i) ? static_cast<int>(results.status(i, Error::NoCause))
                                                     : -1);
        ending.texts.emplace_back(results.text(i, "?"));
      }
    };
  }
  /// Until every worker is gone, and not only its event done.
  static void serveUntilDone(Supervisor& supervisor) {
    while (!supervisor.descriptors().empty()) ASSERT_TRUE(serveOnce(supervisor));
  }
  static bool serveOnce(Supervisor& supervisor) {
    std::vector<pollfd> descriptors;
    for (const int descriptor : supervisor.descriptors()) descriptors.push_back({descriptor, POLLIN, 0});
    const bool hasNews = ::poll(descriptors.data(), descriptors.size(), 20'000) >= 1;
    supervisor.serve();
    return hasNews;
  }

  const HelperDictionary event = {{"/a", HelperDictionary()},
                                  {"/b", HelperDictionary()},
                                  {"/c", HelperDictionary()},
                                  {"/d", HelperDictionary()}};
  const std::string bytes = encodeHelperMessage({HelperMessage::Kind::Event, event, {}}).value();
  const HelperConfiguration configuration{};
  const EventJob job{EventForm{HelperHanldeEventID::Delete, {}, 4}, 10001,
                     MessageView::of(bytes, HelperMessage::Kind::Event).value(), configuration};
};

TEST_F(SupervisorTest, resultsAndOutcomeComeFromTheWorker) {
  const Ending ending = work([](const EventJob& given, ResultSink& sink) {
    sink.result(3, Error::Success, "");
    sink.result(1, Error::DeleteError, "no " + std::string((++ ++given.event.dictionary().begin())->key));
    return EventOutcome{false, static_cast<std::int32_t>(given.caller)};
  });
  EXPECT_EQ(ending.count, 1);
  EXPECT_EQ(ending.statuses, (std::vector<int>{-1, 2, -1, 0}));
  EXPECT_EQ(ending.texts[1], "no /c");
  ASSERT_TRUE(ending.outcome.has_value());
  EXPECT_FALSE(ending.outcome->flag);
  EXPECT_EQ(ending.outcome->code, 10001);
}

TEST_F(SupervisorTest, aKilledWorkerLeavesAnExactTally) {
  const Ending ending = work([](const EventJob&, ResultSink& sink) -> EventOutcome {
    sink.result(0, Error::Success, "");
    sink.result(1, Error::DeleteError, "x");
    ::raise(SIGKILL);
    return {true, 0};
  });
  EXPECT_EQ(ending.count, 1);
  EXPECT_EQ(ending.statuses, (std::vector<int>{0, 2, -1, -1}));
  EXPECT_FALSE(ending.outcome.has_value());
  EXPECT_FALSE(test::hasChildProcesses());
}

TEST_F(SupervisorTest, aWorkerThatThrowsOrEndsEarlyHasNoOutcome) {
  const Ending thrown = work([](const EventJob&, ResultSink& sink) -> EventOutcome {
    sink.result(2, Error::Success, "");
    throw std::bad_alloc();
  });
  EXPECT_EQ(thrown.statuses, (std::vector<int>{-1, -1, 0, -1}));
  EXPECT_FALSE(thrown.outcome.has_value());
  const Ending ended = work([](const EventJob&, ResultSink&) -> EventOutcome { ::_exit(0); });
  EXPECT_EQ(ended.count, 1);
  EXPECT_FALSE(ended.outcome.has_value());
}

TEST_F(SupervisorTest, aWorkerWritesMoreThanAPipeHolds) {
  const Ending ending = work([](const EventJob&, ResultSink& sink) -> EventOutcome {
    const std::string text(kMostResultText + 100, 'x');
    for (int i = 0; i < 2000; ++i) sink.result(0, Error::DeleteError, text);
    sink.result(1, Error::DeleteError, text);
    return {true, 0};
  });
  EXPECT_EQ(ending.texts[1], std::string(kMostResultText, 'x'));
  EXPECT_TRUE(ending.outcome.has_value());
}

TEST_F(SupervisorTest, aHungWorkerHoldsUpNoOther) {
  Supervisor supervisor([](const EventJob& given, ResultSink&) -> EventOutcome {
    while (given.caller == 1) ::pause();
    return {true, 0};
  });
  Ending hung;
  Ending quick;
  ASSERT_TRUE(supervisor.start(1, {job.form, 1, job.event, configuration}, noteIn(hung)));
  ASSERT_TRUE(supervisor.start(2, {job.form, 2, job.event, configuration}, noteIn(quick)));
  while (quick.count == 0) {
    pollfd wait{supervisor.descriptors().at(1), POLLIN, 0};
    ASSERT_EQ(::poll(&wait, 1, 20'000), 1);
    supervisor.serve();
  }
  EXPECT_EQ(hung.count, 0);
  EXPECT_TRUE(quick.outcome->flag);
  supervisor.kill(1);
  serveUntilDone(supervisor);
  EXPECT_EQ(hung.count, 1);
  EXPECT_FALSE(hung.outcome.has_value());
}

TEST_F(SupervisorTest, itsEndLeavesNoWorkerBehind) {
  Ending ending;
  {
    Supervisor supervisor([](const EventJob&, ResultSink&) -> EventOutcome {
      for (;;) ::pause();
    });
    ASSERT_TRUE(supervisor.start(1, job, noteIn(ending)));
  }
  EXPECT_EQ(ending.count, 0);
  int status = 0;
  EXPECT_GT(::waitpid(-1, &status, 0), 0);
  EXPECT_EQ(WTERMSIG(status), SIGKILL);
  EXPECT_FALSE(test::hasChildProcesses());
}

/// Prevents a process from being reaped by its parent, as an endless system call does: only a tracer that has
/// not waited for it can.
class Tracer {
 public:
  explicit Tracer(pid_t process) {
    std::array<int, 2> ends{-1, -1};
    EXPECT_EQ(::pipe(ends.data()), 0);
    const FileDescriptor in(ends[0]);
    FileDescriptor out(ends[1]);
    child_ = ::fork();
    if (child_ == 0) {
      ::alarm(20);
      const bool isTracing = ::ptrace(PTRACE_SEIZE, process, nullptr, nullptr) == 0;
      if (::write(out.get(), "x", isTracing ? 1 : 0) == 1) ::pause();
      ::_exit(1);
    }
    out.reset();
    char byte = 0;
    isTracing_ = ::read(in.get(), &byte, 1) == 1;
  }
  ~Tracer() { end(); }
  Tracer(const Tracer&) = delete;
  Tracer& operator=(const Tracer&) = delete;

  [[nodiscard]] bool isTracing() const { return isTracing_; }
  void end() {
    if (child_ < 0) return;
    ::kill(child_, SIGKILL);
    ::waitpid(child_, nullptr, 0);
    child_ = -1;
  }

 private:
  pid_t child_ = -1;
  bool isTracing_ = false;
};

TEST_F(SupervisorTest, aWorkerThatDiesSlowlyHoldsUpNothing) {
  Supervisor supervisor([](const EventJob& given, ResultSink& sink) -> EventOutcome {
    ::prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY, 0, 0, 0);
    sink.result(0, Error::Success, "");
    while (given.caller == 1) ::pause();
    return {true, 0};
  });
  Ending slow;
  Ending other;
  ASSERT_TRUE(supervisor.start(1, {job.form, 1, job.event, configuration}, noteIn(slow)));
  ASSERT_TRUE(serveOnce(supervisor));
  const pid_t worker = supervisor.process(1);
  Tracer tracer(worker);
  if (!tracer.isTracing()) GTEST_SKIP() << "needs the right to trace";
  supervisor.kill(1);
  ASSERT_TRUE(serveOnce(supervisor));
  EXPECT_EQ(slow.count, 1) << "answered";
  EXPECT_EQ(slow.statuses[0], 0);
  EXPECT_EQ(::kill(worker, 0), 0) << "though it is still there";
  ASSERT_TRUE(supervisor.start(2, {job.form, 2, job.event, configuration}, noteIn(other)));
  while (supervisor.running() > 0) ASSERT_TRUE(serveOnce(supervisor));
  EXPECT_EQ(other.count, 1);
  tracer.end();
  serveUntilDone(supervisor);
  EXPECT_FALSE(test::hasChildProcesses());
}

TEST_F(SupervisorTest, aWorkerHasOnlyItsPipe) {
  const int foreign = ::fcntl(STDIN_FILENO, F_DUPFD, 100);  // not even closed on exec
  const Ending ending = work([foreign](const EventJob&, ResultSink& sink) -> EventOutcome {
    const bool isClosed = ::fcntl(foreign, F_GETFD) < 0;
    sink.result(0, isClosed ? Error::Success : Error::NoCause, "");
    // 0, 1, 2, the pipe, and the descriptor of the listing.
    sink.result(1, test::openDescriptors() <= 5 ? Error::Success : Error::NoCause, "");
    return {};
  });
  ::close(foreign);
  EXPECT_EQ(ending.statuses, (std::vector<int>{0, 0, -1, -1}));
}

TEST_F(SupervisorTest, aWorkerGoesFirstWhenMemoryRunsOut) {
  const Ending ending = work([](const EventJob&, ResultSink& sink) -> EventOutcome {
    std::string score;
    std::ifstream("/proc/self/oom_score_adj") >> score;
    sink.result(0, Error::NoCause, score);
    return {};
  });
  EXPECT_EQ(ending.texts[0], "500");
}

TEST_F(SupervisorTest, thePeakOfAWorkersMemoryIsTold) {
  const Ending ending = work([](const EventJob&, ResultSink& sink) -> EventOutcome {
    const std::vector<char> much(std::size_t{64} << 20, 'x');
    sink.result(0, Error::Success, std::string_view(much.data(), 1));
    return {};
  });
  EXPECT_GT(ending.peakMemory, 64 * 1024);
}

TEST_F(SupervisorTest, aWorkersSignalsAreAsUsual) {
  sigset_t blocked;
  sigset_t before;
  ::sigemptyset(&blocked);
  ::sigaddset(&blocked, SIGTERM);
  ::sigprocmask(SIG_BLOCK, &blocked, &before);
  const Ending ending = work([](const EventJob&, ResultSink& sink) -> EventOutcome {
    sigset_t now;
    ::sigprocmask(SIG_BLOCK, nullptr, &now);
    sink.result(0, ::sigismember(&now, SIGTERM) == 0 ? Error::Success : Error::NoCause, "");
    return {};
  });
  ::sigprocmask(SIG_SETMASK, &before, nullptr);
  EXPECT_EQ(ending.statuses[0], 0);
}

}  // namespace
}  // namespace sorrel::helper
