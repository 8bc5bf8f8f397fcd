#include "Helper/HelperService.hpp"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sdbus-c++/sdbus-c++.h>

#include <cstdlib>
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/HelpTool/HelperWireNames.hpp"
#include "SorrelFramework/HelpTool/MessageView.hpp"
#include "SorrelFramework/HelpTool/SealedMemory.hpp"
#include "Tests/Helper/HelperServiceKit.hpp"
#include "Tests/Support/Checkers.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/ManyPaths.hpp"
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
};
thread_local Moments* moments = nullptr;

void happen(std::function<void()> Moments::*moment) {
  if (moments == nullptr) return;
  if (const auto event = std::exchange(moments->*moment, nullptr)) event();
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
  using sorrel::helper::moments;
  sorrel::helper::happen(&sorrel::helper::Moments::whenItHasItsName);
  if (moments != nullptr && moments->beforeEachMessage) {
    moments->beforeEachMessage(sorrel::helper::next<int(void*)>("sd_bus_get_fd")(bus));
  }
  return sorrel::helper::next<decltype(sd_bus_process)>("sd_bus_process")(bus, message);
}

namespace sorrel::helper {
namespace {

using namespace test;
using HelperServiceTest = HelperServiceKit;

TEST_F(HelperServiceTest, theBusStartsItAndItTellsItsVersion) {
  start({});
  std::promise<std::string> version;
  helper()->getHelperVersion([&](const std::string& text) { version.set_value(text); });
  EXPECT_EQ(version.get_future().get(), SORREL_VERSION);
  EXPECT_TRUE(machine->polkit().questions().empty());
}

// --- the forms of a refusal ---

TEST_F(HelperServiceTest, aRefusedDeleteListsEachPathWithTheNumbersOfTheSender) {
  startScripted(ScriptedPolkit::Mode::No);
  const Answer answer = machine->ask(kDelete, {{"/nowhere/a\xff", HelperDictionary{{"0", 7}, {"1", -8}}},
                                               {"/nowhere/b", HelperDictionary{{"10", 9}}}});
  ASSERT_TRUE(answer.isThere) << machine->log();
  EXPECT_FALSE(answer.flag);
  EXPECT_EQ(answer.code, kNoCause);
  const HelperDictionary first{{"0", 7}, {"1", -8}, {"DeleteStatus", 2}, {"DeleteDesc", kRefused}};
  const HelperDictionary second{{"10", 9}, {"DeleteStatus", 2}, {"DeleteDesc", kRefused}};
  EXPECT_TRUE(answer.dictionary == (HelperDictionary{{"0000000", first}, {"0000001", second}}));
}

TEST_F(HelperServiceTest, aRefusedShredListsEachPath) {
  startScripted(ScriptedPolkit::Mode::No);
  const Answer answer = machine->ask(kShred, {{"/nowhere/a\xff", HelperDictionary()}});
  EXPECT_FALSE(answer.flag);
  const HelperDictionary entry{{"Path", "/nowhere/a\xff"}, {"DeleteStatus", 4}, {"DeleteDesc", kRefused}};
  EXPECT_TRUE(answer.dictionary == (HelperDictionary{{"0000000", entry}}));
}

TEST_F(HelperServiceTest, refusedMaintenanceListsEachPathUnderItself) {
  startScripted(ScriptedPolkit::Mode::No);
  const Answer clean = machine->ask(
      kMaintenance, {{"OperationValue", 2}, {"/a", HelperDictionary()}, {"/b", HelperDictionary()}});
  const HelperDictionary notDeleted{{"DeleteStatus", 2}, {"DeleteDesc", kRefused}};
  EXPECT_FALSE(clean.flag);
  EXPECT_TRUE(clean.dictionary == (HelperDictionary{{"/a", notDeleted}, {"/b", notDeleted}}));
  const Answer move =
      machine->ask(kMaintenance, {{"OperationValue", 3}, {"/a", HelperDictionary{{"ToPath", "/b"}}}});
  const HelperDictionary notMoved{{"DeleteStatus", 5}, {"DeleteDesc", kRefused}};
  EXPECT_FALSE(move.flag);
  EXPECT_TRUE(move.dictionary == (HelperDictionary{{"/a", notMoved}}));
  const Answer dns = machine->ask(kMaintenance, {{"OperationValue", 0}});
  EXPECT_TRUE(dns.isThere);
  EXPECT_FALSE(dns.flag);
  EXPECT_EQ(dns.code, kNoCause);
  EXPECT_TRUE(dns.dictionary.empty());
}

// --- messages ---

TEST_F(HelperServiceTest, unsealedMemoryIsRefused) {
  start({});
  const std::string event = codedEvent(kNowhere);
  const Answer answer = machine->askRaw(kDelete, event, false);
  EXPECT_TRUE(answer.isThere);
  EXPECT_FALSE(answer.flag);
  EXPECT_EQ(answer.code, kNoCause);
  EXPECT_TRUE(answer.dictionary.empty());
  EXPECT_TRUE(machine->polkit().questions().empty());
  EXPECT_TRUE(machine->waitForLog("refused: unsound-message"));
}

TEST_F(HelperServiceTest, anUnknownEventIsRefusedWithoutAQuestion) {
  start({});
  for (const std::int32_t id : {-1, 4, INT32_MAX, INT32_MIN}) {
    const Answer answer = machine->askRaw(id, codedEvent(kNowhere));
    EXPECT_TRUE(answer.isThere) << id;
    EXPECT_FALSE(answer.flag);
    EXPECT_EQ(answer.code, kNoCause);
  }
  EXPECT_TRUE(machine->polkit().questions().empty());
}

TEST_F(HelperServiceTest, whatCanBeNoEventIsRefusedWithoutAQuestion) {
  start({});
  const std::string reply = encodeHelperMessage({HelperMessage::Kind::Reply, kNowhere, {}}).value();
  const std::string long_ = codedEvent({{"OperationValue", 0}}) + std::string(std::size_t{5} << 20, 'x');
  const std::vector<std::pair<std::int32_t, std::string>> events = {{kDelete, "nonsense"},
                                                                    {kDelete, reply},
                                                                    {kMaintenance, codedEvent(kNowhere)},
                                                                    {kMaintenance, long_},
                                                                    {kClose, codedEvent(kNowhere)}};
  for (const auto& [id, bytes] : events) {
    const Answer answer = machine->askRaw(id, bytes);
    EXPECT_TRUE(answer.isThere);
    EXPECT_FALSE(answer.flag);
    EXPECT_TRUE(answer.dictionary.empty());
  }
  EXPECT_TRUE(machine->polkit().questions().empty());
}

TEST_F(HelperServiceTest, anEventThatTurnsOutUnsoundIsRefusedAsAWhole) {
  start({});
  const std::string noViews = encodeHelperMessage({HelperMessage::Kind::Event, kNowhere, {}}).value();
  const std::string foreignTypes = codedEvent({{"/a", HelperDictionary{{"0", "text"}}}});
  const std::string cut = codedEvent(kNowhere).substr(0, 12);
  for (const std::string& bytes : {noViews, foreignTypes, cut}) {
    const Answer answer = machine->askRaw(kDelete, bytes);
    EXPECT_TRUE(answer.isThere);
    EXPECT_FALSE(answer.flag);
    EXPECT_EQ(answer.code, kNoCause);
    EXPECT_TRUE(answer.dictionary.empty());
  }
  EXPECT_EQ(machine->polkit().questions().size(), 3U);
  EXPECT_EQ(machine->log().find(" start"), std::string::npos);
}

TEST_F(HelperServiceTest, aRefusalOfAHugeEventListsNoPathsAndReadsNone) {
  startScripted(ScriptedPolkit::Mode::No);
  const Answer answer = machine->ask(kDelete, test::manyPaths(33'000, 1000));
  ASSERT_TRUE(answer.isThere) << machine->log();
  EXPECT_FALSE(answer.flag);
  EXPECT_TRUE(answer.dictionary.empty());
  EXPECT_EQ(machine->polkit().questions().back().details.at("count"), "33000");
  EXPECT_LT(std::atol(statusOf(machine->helper(), "RssShmem").c_str()), 4096);
}

TEST_F(HelperServiceTest, aUserWhoCollectsRefusalsRunsOutOfThem) {
  startScripted(ScriptedPolkit::Mode::No);
  const HelperDictionary event = test::manyPaths(10'000, 1000);  // a third of the budget
  EXPECT_EQ(machine->ask(kDelete, event).dictionary.size(), 10'000U);
  EXPECT_EQ(machine->ask(kDelete, event).dictionary.size(), 10'000U);
  const Answer third = machine->ask(kDelete, event);
  EXPECT_TRUE(third.isThere);
  EXPECT_FALSE(third.flag);
  EXPECT_TRUE(third.dictionary.empty());
  // Nobody else pays for that, and what is authorised is no refusal.
  EXPECT_EQ(machine->askAs(kAlice, kDelete, event).dictionary.size(), 10'000U);
  machine->polkit().setMode(ScriptedPolkit::Mode::Yes);
  EXPECT_EQ(machine->ask(kDelete, event).dictionary.size(), 10'000U);
}

TEST_F(HelperServiceTest, anEventOf33MegabytesIsAnsweredPathByPath) {
  start({});
  const Answer answer = machine->ask(kDelete, test::manyPaths(33'000, 1000));
  ASSERT_TRUE(answer.isThere) << machine->log();
  ASSERT_EQ(answer.dictionary.size(), 33'000U);
  std::size_t sound = 0;
  std::int64_t expected = 0;
  for (const auto& [key, value] : answer.dictionary) {
    const HelperDictionary& entry = *value.asDictionary();
    if (entry.contains("DeleteStatus") && *entry.at("0").asNumber() == expected++) ++sound;
  }
  EXPECT_EQ(sound, 33'000U);
}

/// What a coded event of `count` paths of 110 bytes has, made without its dictionary: that would take more
/// memory than all the rest.
std::string codedPaths(std::uint32_t count) {
  const auto integer = [](std::uint64_t value, int size) {
    std::string bytes;
    for (int i = 0; i < size; ++i) bytes.push_back(static_cast<char>(value >> (8 * i)));
    return bytes;
  };
  std::string bytes = integer(1, 1) + integer(1, 1) + integer(1, 1) + integer(count, 4);
  for (std::uint32_t i = 0; i < count; ++i) {
    std::string path = "/no/such/folder/" + std::to_string(1'000'000 + i) + "/";
    path.resize(110, 'x');
    bytes += integer(path.size(), 4) + path + integer(3, 1) + integer(1, 4);
    bytes += integer(1, 4) + "0" + integer(1, 1) + integer(i, 8);
  }
  return bytes + integer(1, 1) + std::string(count, '\3');
}

TEST_F(HelperServiceTest, manyPathsTakeLittleMemory) {
  if (test::kIsMemoryDistorted) GTEST_SKIP() << "a checker takes memory of its own";
  constexpr std::uint32_t kCount = 250'000;
  start({});
  const std::string event = codedPaths(kCount);
  const std::string reply = machine->askForBytes(kDelete, event);
  const auto view = MessageView::of(reply, HelperMessage::Kind::Reply);
  ASSERT_TRUE(view.has_value()) << machine->log();
  ASSERT_EQ(view->dictionary().size(), kCount);
  std::size_t sound = 0;
  for (const MessageView::Entry& entry : view->dictionary()) {
    const MessageView::Entry number = *entry.below.begin();
    if (number.key == "0" && number.number == static_cast<std::int64_t>(entry.index)) ++sound;
  }
  EXPECT_EQ(sound, kCount);
  const long supervisor = std::atol(statusOf(machine->helper(), "VmHWM").c_str());
  ASSERT_TRUE(machine->waitForLog("worker-memory="));
  const std::string log = machine->log();
  const long worker = std::atol(log.c_str() + log.find("worker-memory=") + 14);
  RecordProperty("supervisorKiB", std::to_string(supervisor));
  RecordProperty("workerKiB", std::to_string(worker));
  RecordProperty("eventBytes", std::to_string(event.size()));
  EXPECT_GT(supervisor, 0);
  EXPECT_GT(worker, 0);
  EXPECT_LE(supervisor + worker, 256 * 1024);  // a million paths in 1 GiB
}

TEST_F(HelperServiceTest, anEventOverTheCapIsRefused) {
  start({});
  // Nothing but the size is wrong with it.
  std::string bytes = codedEvent(kNowhere);
  bytes.resize(HelperLimits::bytes + 1);
  const Answer answer = machine->askRaw(kDelete, bytes);
  EXPECT_TRUE(answer.isThere);
  EXPECT_FALSE(answer.flag);
  EXPECT_EQ(answer.code, kNoCause);
}

// --- how it goes, and what it owes whom ---

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
    std::promise<void> hasName;
    own.whenItHasItsName = [&] { hasName.set_value(); };
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
  /// What was asked for at the moment; nothing if it never came.
  static Answers askedAt(std::promise<Answers>& moment) {
    auto asked = moment.get_future();
    return asked.wait_for(test::kPatience) == std::future_status::ready ? asked.get() : Answers();
  }

  PrivateBus bus;
  HelperLog log{"helper"};
  Moments own;
  std::unique_ptr<ScriptedPolkit> polkit;
  std::unique_ptr<HelperService> service;
  std::promise<bool> hasEnded;
  std::thread thread;
  std::unique_ptr<EarlyCaller> caller;
  std::promise<void> hasCaller;
  // Moments come until the thread has ended, which is after the test's own body.
  std::mutex mutex;  // held while the other one is at work
  bool isFlooding = false;
  std::unique_ptr<EarlyCaller> other;
};

TEST_F(HelperServiceEnd, whatCameBeforeTheNameWasGivenUpIsAnswered) {
  std::promise<Answers> last;
  own.beforeTheNameIsGivenUp = [&] {
    hasCaller.get_future().wait();
    Answers answers;
    answers.push_back(caller->askForVersion());
    last.set_value(std::move(answers));
  };
  start(ScriptedPolkit::Mode::No, std::chrono::seconds(0), std::chrono::milliseconds(0));
  auto first = caller->askForVersion();
  EXPECT_EQ(answerOf(first), "1.2.3");
  Answers answers = askedAt(last);
  ASSERT_EQ(answers.size(), 1U);
  EXPECT_EQ(answerOf(answers[0]), "1.2.3");
  EXPECT_TRUE(hasEnded.get_future().get());
}

TEST_F(HelperServiceEnd, whoLookedItUpBeforeIsServedForAWhile) {
  std::promise<Answers> last;
  own.whenItWaitsWithoutName = [&] {
    Answers answers;
    answers.push_back(caller->askForVersion());
    answers.push_back(caller->askToDelete());
    last.set_value(std::move(answers));
  };
  own.beforeTheNameIsGivenUp = [&] { hasCaller.get_future().wait(); };
  start(ScriptedPolkit::Mode::No, std::chrono::seconds(0), 5 * test::kPatience);
  auto first = caller->askForVersion();
  EXPECT_EQ(answerOf(first), "1.2.3");
  Answers answers = askedAt(last);
  ASSERT_EQ(answers.size(), 2U);
  EXPECT_EQ(answerOf(answers[0]), "1.2.3");
  EXPECT_EQ(answerOf(answers[1]), "not done " + std::to_string(kNoCause));
  EXPECT_EQ(polkit->questions().size(), 1U) << "refused by whoever has to say so";
}

TEST_F(HelperServiceEnd, whoComesAfterTheFarewellIsToldSo) {
  std::promise<Answers> last;
  own.beforeTheNameIsGivenUp = [&] {
    hasCaller.get_future().wait();
    Answers answers;
    answers.push_back(caller->askToDelete());
    last.set_value(std::move(answers));
  };
  start(ScriptedPolkit::Mode::Yes, std::chrono::seconds(0), std::chrono::milliseconds(0));
  auto first = caller->askForVersion();
  EXPECT_EQ(answerOf(first), "1.2.3");
  Answers answers = askedAt(last);
  ASSERT_EQ(answers.size(), 1U);
  EXPECT_EQ(answerOf(answers[0]), "not done " + std::to_string(kNoCause));
  EXPECT_TRUE(hasEnded.get_future().get());
  EXPECT_TRUE(polkit->questions().empty());
}

TEST_F(HelperServiceEnd, whoNeverStopsKeepsNobodyWaiting) {
  own.beforeEachMessage = [this](int descriptor) {
    const std::lock_guard lock(mutex);
    if (!isFlooding) return;
    other->tell();
    pollfd arrival{descriptor, POLLIN, 0};
    ::poll(&arrival, 1, static_cast<int>(test::kPatience.count()));
  };
  start(ScriptedPolkit::Mode::Yes, std::chrono::seconds(300), std::chrono::milliseconds(0));
  other = std::make_unique<EarlyCaller>(bus.address());
  const auto flood = [&](bool isOn) {
    const std::lock_guard lock(mutex);
    isFlooding = isOn;
  };
  flood(true);
  auto answer = caller->askToDelete();
  EXPECT_NE(answerOf(answer), "nothing") << "a worker's result waits for its turn";
  flood(false);
}

}  // namespace
}  // namespace sorrel::helper
