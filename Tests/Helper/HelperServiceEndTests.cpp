// How the service goes, and what it owes whom.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sdbus-c++/sdbus-c++.h>

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
#include "SorrelFramework/HelpTool/SealedMemory.hpp"
#include "Tests/Helper/HelperServiceKit.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/PrivateBus.hpp"

namespace sorrel::helper {
namespace {

/// What happens on the service's own thread at moments that nobody outside can see.
struct Moments {
  std::function<void()> whenItHasItsName;
  std::function<void()> beforeTheNameIsGivenUp;
  std::function<void()> whenItWaitsWithoutName;
  std::function<void(int descriptor)> beforeEachMessage;
  bool isNameGivenUp = false;
  std::recursive_mutex mutex;  // held while something happens, which may call the bus itself

  /// From here on nothing does: the thread ends later than what the moments refer to.
  void forget() {
    const std::lock_guard lock(mutex);
    for (const auto moment :
         {&Moments::whenItHasItsName, &Moments::beforeTheNameIsGivenUp, &Moments::whenItWaitsWithoutName}) {
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

/// The library's own function, behind the one of this file.
template <class Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace
}  // namespace sorrel::helper

// Stand before those of libsystemd, with the signatures of <systemd/sd-bus.h> and what only passes through as
// void.
extern "C" [[gnu::visibility("default")]] int sd_bus_release_name(void* bus, const char* name) {
  using sorrel::helper::moments;
  sorrel::helper::happen(&sorrel::helper::Moments::beforeTheNameIsGivenUp);
  if (moments != nullptr) moments->isNameGivenUp = true;
  return sorrel::helper::next<decltype(sd_bus_release_name)>("sd_bus_release_name")(bus, name);
}

extern "C" [[gnu::visibility("default")]] int sd_bus_get_events(void* bus) {
  using sorrel::helper::moments;
  if (moments != nullptr && moments->isNameGivenUp) {
    sorrel::helper::happen(&sorrel::helper::Moments::whenItWaitsWithoutName);
  }
  return sorrel::helper::next<decltype(sd_bus_get_events)>("sd_bus_get_events")(bus);
}

extern "C" [[gnu::visibility("default")]] int sd_bus_process(void* bus, void** message) {
  sorrel::helper::happen(&sorrel::helper::Moments::whenItHasItsName);
  sorrel::helper::happenBeforeMessage(sorrel::helper::next<int(void*)>("sd_bus_get_fd")(bus));
  return sorrel::helper::next<decltype(sd_bus_process)>("sd_bus_process")(bus, message);
}

namespace sorrel::helper {
namespace {

using namespace test;

const std::string kOwnName = "org.example.Helper";

/// Who has looked up where the service is, once and for all.
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

  /// All return when the bus has the call. An answer "" is none.
  std::future<std::string> askForVersion() {
    return send(
        HelperWireNames::getHelperVersion, [](auto&) {},
        [](sdbus::MethodReply& reply) {
          std::string version;
          reply >> version;
          return version;
        });
  }
  std::future<std::string> askToDelete() {
    const FileDescriptor memory = SealedMemory::make(codedEvent(kNowhere));
    return send(
        HelperWireNames::handleEvent, [&](auto& call) { call << kDelete << sdbus::UnixFd(memory.get()); },
        [](sdbus::MethodReply& reply) {
          bool flag = false;
          std::int32_t code = 0;
          reply >> flag >> code;
          return (flag ? "done " : "not done ") + std::to_string(code);
        });
  }
  /// Wants no answer.
  void tell() {
    sdbus::MethodCall call = service_->createMethodCall(names_.interface, HelperWireNames::getHelperVersion);
    call.dontExpectReply();
    service_->callMethod(call);
    waitForBus();
  }

 private:
  /// Returns when the bus has taken what was sent before.
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
          promise->set_value(error == nullptr ? result(reply) : "");
        },
        UINT64_MAX);
    waitForBus();
    return promise->get_future();
  }

  const HelperWireNames names_{kOwnName};
  std::unique_ptr<sdbus::IConnection> connection_;
  std::unique_ptr<sdbus::IProxy> bus_;
  std::unique_ptr<sdbus::IProxy> service_;
};

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

  void start(ScriptedPolkit::Mode mode, std::chrono::seconds idle, std::chrono::milliseconds farewell) {
    polkit = std::make_unique<ScriptedPolkit>(bus.address(), mode);
    HelperConfiguration configuration;
    configuration.idle = idle;
    configuration.farewell = farewell;
    auto connection = sdbus::createSessionBusConnectionWithAddress(bus.address());
    service = std::make_unique<HelperService>(
        std::move(connection), HelperIdentity{kOwnName, "1.2.3", [](std::string&) { return false; }},
        configuration, log);
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

  static std::string answerOf(std::future<std::string>& answer) {
    return answer.wait_for(test::kPatience) == std::future_status::ready ? answer.get() : "nothing";
  }
  using Answers = std::vector<std::future<std::string>>;
  /// What was asked for at the last moment; nothing if it never came.
  Answers askedLast() {
    auto asked = last.get_future();
    return asked.wait_for(test::kPatience) == std::future_status::ready ? asked.get() : Answers();
  }

  PrivateBus bus;
  HelperLog log{"helper"};
  Moments own;
  std::unique_ptr<ScriptedPolkit> polkit;
  std::unique_ptr<HelperService> service;
  std::promise<void> hasName;
  std::promise<bool> hasEnded;
  std::thread thread;
  std::unique_ptr<EarlyCaller> caller;
  std::promise<void> hasCaller;
  // Moments come until they are forgotten, which is after the test's own body.
  std::promise<Answers> last;
  bool isFlooding = false;
  std::unique_ptr<EarlyCaller> other;
};

TEST_F(HelperServiceEnd, whatCameBeforeTheNameWasGivenUpIsAnswered) {
  own.beforeTheNameIsGivenUp = [this] {
    hasCaller.get_future().wait();
    Answers answers;
    answers.push_back(caller->askForVersion());
    last.set_value(std::move(answers));
  };
  start(ScriptedPolkit::Mode::No, std::chrono::seconds(0), std::chrono::milliseconds(0));
  auto first = caller->askForVersion();
  EXPECT_EQ(answerOf(first), "1.2.3");
  Answers answers = askedLast();
  ASSERT_EQ(answers.size(), 1U);
  EXPECT_EQ(answerOf(answers[0]), "1.2.3");
  EXPECT_TRUE(hasEnded.get_future().get());
}

TEST_F(HelperServiceEnd, whoLookedItUpBeforeIsServedForAWhile) {
  own.whenItWaitsWithoutName = [this] {
    Answers answers;
    answers.push_back(caller->askForVersion());
    answers.push_back(caller->askToDelete());
    last.set_value(std::move(answers));
  };
  own.beforeTheNameIsGivenUp = [this] { hasCaller.get_future().wait(); };
  start(ScriptedPolkit::Mode::No, std::chrono::seconds(0), 5 * test::kPatience);
  auto first = caller->askForVersion();
  EXPECT_EQ(answerOf(first), "1.2.3");
  Answers answers = askedLast();
  ASSERT_EQ(answers.size(), 2U);
  EXPECT_EQ(answerOf(answers[0]), "1.2.3");
  EXPECT_EQ(answerOf(answers[1]), "not done " + std::to_string(kNoCause));
  EXPECT_EQ(polkit->questions().size(), 1U) << "refused by whoever has to say so";
}

TEST_F(HelperServiceEnd, whoComesAfterTheFarewellIsToldSo) {
  own.beforeTheNameIsGivenUp = [this] {
    hasCaller.get_future().wait();
    Answers answers;
    answers.push_back(caller->askToDelete());
    last.set_value(std::move(answers));
  };
  start(ScriptedPolkit::Mode::Yes, std::chrono::seconds(0), std::chrono::milliseconds(0));
  auto first = caller->askForVersion();
  EXPECT_EQ(answerOf(first), "1.2.3");
  Answers answers = askedLast();
  ASSERT_EQ(answers.size(), 1U);
  EXPECT_EQ(answerOf(answers[0]), "not done " + std::to_string(kNoCause));
  EXPECT_TRUE(hasEnded.get_future().get());
  EXPECT_TRUE(polkit->questions().empty());
}

TEST_F(HelperServiceEnd, whoNeverStopsKeepsNobodyWaiting) {
  own.beforeEachMessage = [this](int descriptor) {
    if (!isFlooding) return;
    other->tell();
    pollfd arrival{descriptor, POLLIN, 0};
    ::poll(&arrival, 1, static_cast<int>(test::kPatience.count()));
  };
  start(ScriptedPolkit::Mode::Yes, std::chrono::seconds(300), std::chrono::milliseconds(0));
  other = std::make_unique<EarlyCaller>(bus.address());
  const auto flood = [&](bool isOn) {
    const std::lock_guard lock(own.mutex);
    isFlooding = isOn;
  };
  flood(true);
  auto answer = caller->askToDelete();
  EXPECT_NE(answerOf(answer), "nothing") << "a worker's result waits for its turn";
  flood(false);
}

}  // namespace
}  // namespace sorrel::helper
