// The end of the service, and the answers it owes its callers.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sdbus-c++/sdbus-c++.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Helper/HelperService.hpp"
#include "SorrelFramework/HelpTool/HelperWireNames.hpp"
#include "Tests/Helper/HelperServiceKit.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/PrivateBus.hpp"

namespace sorrel::helper {
namespace {

/// Actions on the service's own thread at moments that can't be observed from outside.
struct Moments {
  std::function<void()> whenItHasItsName;
  std::function<void()> beforeTheNameIsGivenUp;
  std::function<void(int descriptor)> beforeEachMessage;
  std::atomic<bool> hasDescriptors = true;
  std::atomic<bool> hasMemory = true;
  std::recursive_mutex mutex;  // held while an action runs, which may call the bus itself

  /// From here on no action runs: the thread ends later than the objects that the actions refer to.
  void forget() {
    const std::lock_guard lock(mutex);
    for (const auto moment : {&Moments::whenItHasItsName, &Moments::beforeTheNameIsGivenUp}) {
      this->*moment = nullptr;
    }
    beforeEachMessage = nullptr;
  }
};
thread_local Moments* moments = nullptr;

void happen(std::function<void()> Moments::*moment) {
  if (moments == nullptr) return;
  const std::lock_guard lock(moments->mutex);
  if (const auto event = std::exchange(moments->*moment, nullptr)) event();
}

void happenBeforeMessage(int descriptor) {
  if (moments == nullptr) return;
  const std::lock_guard lock(moments->mutex);
  if (moments->beforeEachMessage) moments->beforeEachMessage(descriptor);
}

/// The library's own function, which the one of this file shadows.
template <class Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace
}  // namespace sorrel::helper

// These shadow the functions of libsystemd, with the signatures of <systemd/sd-bus.h> and void for parameters
// that are only passed on.
extern "C" [[gnu::visibility("default")]] int sd_bus_release_name(void* bus, const char* name) {
  sorrel::helper::happen(&sorrel::helper::Moments::beforeTheNameIsGivenUp);
  return sorrel::helper::next<decltype(sd_bus_release_name)>("sd_bus_release_name")(bus, name);
}

extern "C" [[gnu::visibility("default")]] int sd_bus_process(void* bus, void** message) {
  sorrel::helper::happen(&sorrel::helper::Moments::whenItHasItsName);
  sorrel::helper::happenBeforeMessage(sorrel::helper::next<int(void*)>("sd_bus_get_fd")(bus));
  return sorrel::helper::next<decltype(sd_bus_process)>("sd_bus_process")(bus, message);
}

extern "C" [[gnu::visibility("default")]] int sd_bus_message_append_basic(void* message, char type,
                                                                          const void* value) {
  using sorrel::helper::moments;
  if (type == 'h' && moments != nullptr && !moments->hasDescriptors) return -EMFILE;
  return sorrel::helper::next<decltype(sd_bus_message_append_basic)>("sd_bus_message_append_basic")(
      message, type, value);
}

extern "C" [[gnu::visibility("default")]] int memfd_create(const char* name, unsigned flags) {
  using sorrel::helper::moments;
  if (moments != nullptr && !moments->hasMemory) {
    errno = ENOMEM;
    return -1;
  }
  return sorrel::helper::next<decltype(memfd_create)>("memfd_create")(name, flags);
}

namespace sorrel::helper {
namespace {

using namespace test;

const std::string kOwnName = "org.example.Helper";

/// A caller that has looked up the service's owner once, permanently.
class EarlyCaller {
 public:
  explicit EarlyCaller(const std::string& address)
      : connection_(sdbus::createSessionBusConnectionWithAddress(address)),
        bus_(sdbus::createProxy(*connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus")) {
    std::string owner;
    bus_->callMethod("GetNameOwner")
        .onInterface("org.freedesktop.DBus")
        .withArguments(kOwnName)
        .storeResultsTo(owner);
    service_ = sdbus::createProxy(*connection_, owner, names_.objectPath);
    connection_->enterEventLoopAsync();
  }
  ~EarlyCaller() { connection_->leaveEventLoop(); }

  /// All return when the bus has the call. An answer "" means none.
  std::future<std::string> askForVersion() {
    return send(
        HelperWireNames::getHelperVersion, [](auto&) {},
        [](sdbus::MethodReply& reply) {
          std::string version;
          reply >> version;
          return version;
        });
  }
  /// "ticket", with the event already in the helper's memory, or the refusal.
  std::future<std::string> begin() {
    const std::string message = codedEvent(kNowhere);
    return send(
        HelperWireNames::begin,
        [&](auto& call) {
          call << kDelete << HelperWireNames::noOperation << std::uint32_t{1}
               << std::uint64_t{message.size()};
        },
        [this, message](sdbus::MethodReply& reply) {
          sdbus::UnixFd memory;
          reply >> ticket_ >> memory;
          const auto size = static_cast<ssize_t>(message.size());
          return std::string(::pwrite(memory.get(), message.data(), message.size(), 0) == size ? "ticket"
                                                                                               : "");
        });
  }
  std::future<std::string> run() {
    return send(
        HelperWireNames::run, [&](auto& call) { call << ticket_; },
        [](sdbus::MethodReply&) { return std::string("answered"); });
  }
  /// Expects no answer.
  void tell() {
    sdbus::MethodCall call = service_->createMethodCall(names_.interface, HelperWireNames::getHelperVersion);
    call.dontExpectReply();
    service_->callMethod(call);
    waitForBus();
  }

 private:
  /// Returns when the bus has processed everything sent before.
  void waitForBus() {
    std::string id;
    bus_->callMethod("GetId").onInterface("org.freedesktop.DBus").storeResultsTo(id);
  }
  std::future<std::string> send(const char* method, const std::function<void(sdbus::MethodCall&)>& arguments,
                                std::function<std::string(sdbus::MethodReply&)> result) {
    const auto promise = std::make_shared<std::promise<std::string>>();
    sdbus::MethodCall call = service_->createMethodCall(names_.interface, method);
    arguments(call);
    service_->callMethod(
        call,
        [promise, result = std::move(result)](sdbus::MethodReply& reply, const sdbus::Error* error) {
          promise->set_value(error == nullptr ? result(reply) : error->getMessage());
        },
        UINT64_MAX);
    waitForBus();
    return promise->get_future();
  }

  const HelperWireNames names_{kOwnName};
  std::uint64_t ticket_ = 0;
  std::unique_ptr<sdbus::IConnection> connection_;
  std::unique_ptr<sdbus::IProxy> bus_;
  std::unique_ptr<sdbus::IProxy> service_;
};

constexpr std::chrono::seconds kLong{300};

/// The service in a thread of this process.
class HelperServiceEnd : public testing::Test {
 protected:
  void TearDown() override {
    own.forget();
    caller.reset();
    other.reset();
    polkit.reset();
    bus.stop();
    if (thread.joinable()) thread.join();
  }

  void start(ScriptedPolkit::Mode mode, std::chrono::seconds idle, std::chrono::seconds question = kLong) {
    polkit = std::make_unique<ScriptedPolkit>(bus.address(), mode);
    configuration.idle = idle;
    auto connection = sdbus::createSessionBusConnectionWithAddress(bus.address());
    service = std::make_unique<HelperService>(
        std::move(connection),
        HelperIdentity{kOwnName, "1.2.3", [this] { return isReplaced.load(); }, nullptr, question},
        [this]() -> const HelperConfiguration& { return configuration; }, log);
    own.whenItHasItsName = [this] { hasName.set_value(); };
    thread = std::thread([&] {
      moments = &own;
      hasEnded.set_value(service->run(-1));
      service.reset();
    });
    hasName.get_future().wait();
    caller = std::make_unique<EarlyCaller>(bus.address());
    hasCaller.set_value();
  }

  /// On the service's thread: one more call arrives before it checks.
  void keepFlooding(int descriptor) {
    if (!isFlooding) return;
    other->tell();
    pollfd arrival{descriptor, POLLIN, 0};
    ::poll(&arrival, 1, static_cast<int>(test::kPatience.count()));
  }
  void flood(bool isOn) {
    if (other == nullptr) other = std::make_unique<EarlyCaller>(bus.address());
    const std::lock_guard lock(own.mutex);
    isFlooding = isOn;
  }

  static std::string answerOf(std::future<std::string>& answer) {
    return answer.wait_for(test::kPatience) == std::future_status::ready ? answer.get() : "nothing";
  }
  using Answers = std::vector<std::future<std::string>>;
  /// The answers requested at the last moment; nothing if that never came.
  Answers askedLast() {
    auto asked = last.get_future();
    return asked.wait_for(test::kPatience) == std::future_status::ready ? asked.get() : Answers();
  }

  PrivateBus bus;
  HelperLog log{"helper"};
  HelperConfiguration configuration;
  Moments own;
  std::unique_ptr<ScriptedPolkit> polkit;
  std::unique_ptr<HelperService> service;
  std::promise<void> hasName;
  std::promise<bool> hasEnded;
  std::thread thread;
  std::unique_ptr<EarlyCaller> caller;
  std::promise<void> hasCaller;
  // Moments occur until they are forgotten, which is after the test's own body.
  std::promise<Answers> last;
  bool isFlooding = false;
  std::atomic<bool> isReplaced = false;
  std::unique_ptr<EarlyCaller> other;
};

TEST_F(HelperServiceEnd, callsFromBeforeTheNameWasGivenUpAreAnswered) {
  own.beforeTheNameIsGivenUp = [this] {
    hasCaller.get_future().wait();
    Answers answers;
    answers.push_back(caller->askForVersion());
    answers.push_back(caller->begin());
    last.set_value(std::move(answers));
  };
  start(ScriptedPolkit::Mode::Yes, std::chrono::seconds(0));
  Answers answers = askedLast();
  ASSERT_EQ(answers.size(), 2U);
  EXPECT_EQ(answerOf(answers[0]), "1.2.3");
  EXPECT_EQ(answerOf(answers[1]), "closing") << "which sends the caller to the next helper";
  EXPECT_TRUE(hasEnded.get_future().get());
  EXPECT_TRUE(polkit->questions().empty());
}

TEST_F(HelperServiceEnd, aFloodOfCallsKeepsNoResultWaiting) {
  own.beforeEachMessage = [this](int descriptor) { keepFlooding(descriptor); };
  start(ScriptedPolkit::Mode::Yes, std::chrono::seconds(300));
  auto ticket = caller->begin();
  ASSERT_EQ(answerOf(ticket), "ticket");
  flood(true);
  auto answer = caller->run();
  EXPECT_EQ(answerOf(answer), "answered");
  flood(false);
}

TEST_F(HelperServiceEnd, callsThatNeedNoRightKeepItFromEndingNoLonger) {
  own.beforeEachMessage = [this](int descriptor) { keepFlooding(descriptor); };
  own.beforeTheNameIsGivenUp = [this] { isFlooding = false; };
  start(ScriptedPolkit::Mode::No, std::chrono::seconds(1));
  flood(true);
  auto end = hasEnded.get_future();
  EXPECT_EQ(end.wait_for(test::kPatience), std::future_status::ready);
}

TEST_F(HelperServiceEnd, aQuestionWithoutAnAnswerKeepsItNotForEver) {
  start(ScriptedPolkit::Mode::Wait, std::chrono::seconds(0), std::chrono::seconds(1));
  auto answer = caller->begin();
  ASSERT_TRUE(polkit->waitForQuestions(1));
  EXPECT_EQ(answerOf(answer), "closing") << "the next helper asks again";
  EXPECT_EQ(hasEnded.get_future().wait_for(test::kPatience), std::future_status::ready);
}

TEST_F(HelperServiceEnd, aTicketThatGotLostIsNotKept) {
  start(ScriptedPolkit::Mode::Yes, kLong);
  own.hasDescriptors = false;
  auto lost = caller->begin();
  EXPECT_EQ(answerOf(lost), "no memory");
  own.hasDescriptors = true;
  auto ticket = caller->begin();
  EXPECT_EQ(answerOf(ticket), "ticket") << "not that the user has an event under way";
}

TEST_F(HelperServiceEnd, anEventWithoutMemoryForItsReplyIsLost) {
  start(ScriptedPolkit::Mode::Yes, kLong);
  auto ticket = caller->begin();
  ASSERT_EQ(answerOf(ticket), "ticket");
  own.hasMemory = false;
  auto answer = caller->run();
  EXPECT_EQ(answerOf(answer), "no memory") << "which is no refusal, and no success";
  own.hasMemory = true;
  auto next = caller->begin();
  EXPECT_EQ(answerOf(next), "ticket");
}

TEST_F(HelperServiceEnd, theNextCallEndsAReplacedHelper) {
  start(ScriptedPolkit::Mode::Yes, std::chrono::seconds(300));
  isReplaced = true;
  auto answer = caller->begin();
  EXPECT_EQ(answerOf(answer), "closing");
  EXPECT_TRUE(hasEnded.get_future().get());
  EXPECT_TRUE(polkit->questions().empty());
}

TEST_F(HelperServiceEnd, aQuestionKeepsNoReplacedHelper) {
  start(ScriptedPolkit::Mode::Wait, std::chrono::seconds(300));
  auto first = caller->begin();
  ASSERT_TRUE(polkit->waitForQuestions(1));
  isReplaced = true;
  auto second = caller->begin();
  EXPECT_EQ(answerOf(second), "closing");
  EXPECT_EQ(answerOf(first), "closing") << "the next helper asks again";
  EXPECT_TRUE(hasEnded.get_future().get());
}

TEST_F(HelperServiceEnd, aReplacedHelperFinishesItsWork) {
  start(ScriptedPolkit::Mode::Yes, std::chrono::seconds(300));
  auto ticket = caller->begin();
  ASSERT_EQ(answerOf(ticket), "ticket");
  isReplaced = true;
  auto answer = caller->run();
  EXPECT_EQ(answerOf(answer), "answered");
}

}  // namespace
}  // namespace sorrel::helper
