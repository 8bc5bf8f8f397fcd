#include "SorrelFramework/HelpTool/DBusHelperConnection.hpp"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sdbus-c++/sdbus-c++.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/HelpTool/EventRefusal.hpp"
#include "SorrelFramework/HelpTool/HelperWireNames.hpp"
#include "SorrelFramework/HelpTool/PollingThread.hpp"
#include "SorrelFramework/HelpTool/PrivilegeHelper.hpp"
#include "SorrelFramework/HelpTool/SealedMemory.hpp"
#include "SorrelFramework/Platform/Host.hpp"
#include "Tests/Support/Checkers.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/ManyPaths.hpp"
#include "Tests/Support/PrivateBus.hpp"
#include "Tests/Support/ProcessState.hpp"
#include "Tests/Support/ScopedVariable.hpp"
#include "Tests/Support/ScriptedHelper.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel {
namespace {

/// What sdbus-c++ asks of the library below it.
class BusCalls {
 public:
  void note(std::uint64_t timeout) {
    std::function<void()> event;
    {
      const std::lock_guard lock(mutex_);
      timeouts_.push_back(timeout);
      if (before_ != nullptr && more_-- == 0) event = std::exchange(before_, nullptr);
    }
    if (event) event();
  }
  /// The time-outs since the last call of this, in microseconds.
  std::vector<std::uint64_t> takeTimeouts() {
    const std::lock_guard lock(mutex_);
    return std::exchange(timeouts_, {});
  }
  /// Lets something happen at the beginning of a call, on its thread: of the next one, or some later.
  void before(int more, std::function<void()> event) {
    const std::lock_guard lock(mutex_);
    more_ = more;
    before_ = std::move(event);
  }

 private:
  std::mutex mutex_;
  std::vector<std::uint64_t> timeouts_;
  int more_ = 0;
  std::function<void()> before_;
};

BusCalls& busCalls() {
  static BusCalls instance;
  return instance;
}

/// The library's own function, behind the one of this file.
template <class Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace
}  // namespace sorrel

// Stand before those of libsystemd: every call passes here on its way to the bus. The signatures are those of
// <systemd/sd-bus.h>, with what only passes through as void.
extern "C" [[gnu::visibility("default")]] int sd_bus_call(void* bus, void* message, std::uint64_t timeout,
                                                          void* error, void** reply) {
  sorrel::busCalls().note(timeout);
  return sorrel::next<decltype(sd_bus_call)>("sd_bus_call")(bus, message, timeout, error, reply);
}

extern "C" [[gnu::visibility("default")]] int sd_bus_call_async(void* bus, void** slot, void* message,
                                                                void* callback, void* userData,
                                                                std::uint64_t timeout) {
  sorrel::busCalls().note(timeout);
  return sorrel::next<decltype(sd_bus_call_async)>("sd_bus_call_async")(bus, slot, message, callback,
                                                                        userData, timeout);
}

namespace sorrel {
namespace {

const std::string kName = "org.example.test-appHelper";
constexpr std::int32_t kDelete = 0;
constexpr std::int32_t kMaintenance = 2;
constexpr std::int32_t kCloseHelper = 3;
/// What a call asks of the bus before it goes out: who owns the name, and what user that is.
constexpr int kQuestions = 2;

FileDescriptor sealedReply(const std::optional<HelperDictionary>& dictionary) {
  const HelperMessage message{HelperMessage::Kind::Reply, dictionary, {}};
  return SealedMemory::make(encodeHelperMessage(message).value_or(""));
}

/// The helper's end of the wire, without a helper behind it.
class Service {
 public:
  using Result = sdbus::Result<bool, std::int32_t, sdbus::UnixFd>;
  struct Event {
    std::int32_t id = 0;
    std::optional<HelperMessage> message;
  };
  using Answer = std::function<void(const Event&, Result&&)>;

  Service(const std::string& address, Answer answer)
      : answer_(std::move(answer)), connection_(sdbus::createSessionBusConnectionWithAddress(address)) {
    const HelperWireNames names(kName);
    object_ = sdbus::createObject(*connection_, names.objectPath);
    object_->registerMethod(HelperWireNames::handleEvent)
        .onInterface(names.interface)
        .implementedAs([this](Result&& result, std::int32_t id, const sdbus::UnixFd& memory) {
          handle(id, memory.get(), std::move(result));
        });
    object_->registerMethod(HelperWireNames::getHelperVersion).onInterface(names.interface).implementedAs([] {
      return std::string("1.2.3");
    });
    object_->registerMethod(HelperWireNames::uninstall).onInterface(names.interface).implementedAs([] {
      return std::make_tuple(true, std::string("gone"));
    });
    object_->finishRegistration();
    connection_->requestName(kName);
    thread_.start();
  }

  static void reply(Result&& result, bool flag, std::int32_t code, const FileDescriptor& memory) {
    result.returnResults(flag, code, sdbus::UnixFd(memory.get()));
  }
  /// Sends the event's dictionary back.
  static void echo(const Event& event, Result&& result) {
    reply(std::move(result), true, event.id, sealedReply(event.message->dictionary));
  }

  /// In an answer.
  void giveUpName() { connection_->releaseName(kName); }

  std::string uniqueName() const { return connection_->getUniqueName(); }

  std::vector<Event> events() const {
    const std::lock_guard lock(mutex_);
    return events_;
  }
  bool waitForEvents(std::size_t count) const {
    std::unique_lock lock(mutex_);
    return arrived_.wait_for(lock, test::kPatience, [&] { return events_.size() >= count; });
  }

 private:
  PollingThread::Wait wait() const {
    try {
      const sdbus::IConnection::PollData data = connection_->getEventLoopPollData();
      return {data.fd, data.events, data.getPollTimeout()};
    } catch (const sdbus::Error&) {
      return {};  // the bus is gone
    }
  }
  void process() const {
    try {
      while (connection_->processPendingRequest()) {
      }
    } catch (const sdbus::Error&) {
    }
  }

  void handle(std::int32_t id, int memory, Result&& result) {
    Event event{id, std::nullopt};
    if (const auto mapped = SealedMemory::map(memory, HelperLimits::bytes)) {
      event.message = decodeHelperMessage(mapped->bytes(), HelperMessage::Kind::Event);
    }
    {
      const std::lock_guard lock(mutex_);
      events_.push_back(event);
      arrived_.notify_all();
    }
    answer_(event, std::move(result));
  }

  const Answer answer_;
  mutable std::mutex mutex_;
  mutable std::condition_variable arrived_;
  std::vector<Event> events_;
  std::unique_ptr<sdbus::IConnection> connection_;
  std::unique_ptr<sdbus::IObject> object_;
  // In place of the loop of sdbus-c++, which ends the process when the bus goes.
  PollingThread thread_{{[this] { return wait(); }, [this] { process(); }}};
};

/// Never replies.
void keepSilent(const Service::Event&, Service::Result&&) {}

/// One number more than a path may have.
HelperDictionary overACap() {
  HelperDictionary numbers;
  for (int i = 0; i < 65; ++i) numbers.emplace(std::to_string(i), i);
  return {{"/a", numbers}};
}

struct Reply {
  bool flag = false;
  std::int32_t code = -1;
  std::optional<HelperDictionary> dictionary;
};

class DBusHelperConnectionTest : public testing::Test {
 protected:
  DBusHelperConnectionTest() { Host::install(Host::macVolume(folder.path(), "alice", {})); }

  DBusHelperConnection::Options options() const { return {bus.address(), ::getuid()}; }
  void startService(Service::Answer answer) {
    service = std::make_unique<Service>(bus.address(), std::move(answer));
  }
  std::shared_ptr<HelperProtocol> helper() {
    return privilege.getHelperTool(kName, kSMDomainSystemLaunchd).helper;
  }
  /// Sends an event and waits for its reply.
  static Reply ask(HelperProtocol& helper, std::int32_t id, const HelperDictionary& dictionary,
                   std::chrono::milliseconds patience = test::kPatience) {
    const auto promise = std::make_shared<std::promise<Reply>>();
    helper.handleEvent(
        id, dictionary,
        [promise](bool flag, std::int32_t code, const std::optional<HelperDictionary>& answer) {
          promise->set_value({flag, code, answer});
        });
    std::future<Reply> reply = promise->get_future();
    const bool isThere = reply.wait_for(patience) == std::future_status::ready;
    EXPECT_TRUE(isThere);
    return isThere ? reply.get() : Reply();
  }
  /// Sends an event whose reply must not come.
  void askInVain(HelperProtocol& helper, std::int32_t id = kDelete) {
    helper.handleEvent(id, {{"/a", HelperDictionary()}},
                       [this](bool, std::int32_t, const std::optional<HelperDictionary>&) { ++replies; });
  }
  /// The bus knows that it is gone when this returns.
  void endService() {
    const std::string name = service->uniqueName();
    service.reset();
    const auto connection = sdbus::createSessionBusConnectionWithAddress(bus.address());
    const auto daemon = sdbus::createProxy(*connection, "org.freedesktop.DBus", "/org/freedesktop/DBus");
    for (bool isThere = true; isThere;) {
      daemon->callMethod("NameHasOwner")
          .onInterface("org.freedesktop.DBus")
          .withArguments(name)
          .storeResultsTo(isThere);
    }
  }
  void replaceService(Service::Answer answer) {
    endService();
    startService(std::move(answer));
  }
  /// A helper whose lost calls are counted.
  std::shared_ptr<HelperProtocol> countedHelper() {
    counted = DBusHelperConnection::make(kName, options());
    EXPECT_NE(counted, nullptr);
    return counted->remoteObjectProxyWithErrorHandler([this] { ++losses; });
  }
  bool waitForLoss() {
    return test::runMainLoopUntil([this] { return losses > 0; });
  }
  bool waitUntilFieldsAreClear() {
    return test::runMainLoopUntil(
        [this] { return privilege.helpTool() == nullptr && privilege.helpConnect() == nullptr; });
  }
  void expectLostCall(Service::Answer answer) {
    startService(std::move(answer));
    const auto held = helper();
    ASSERT_NE(held, nullptr);
    askInVain(*held);
    EXPECT_TRUE(waitUntilFieldsAreClear());
    EXPECT_EQ(replies, 0);
  }

  test::TemporaryFolder folder;
  test::PrivateBus bus;
  std::unique_ptr<Service> service;
  std::atomic<int> replies = 0;
  std::atomic<int> losses = 0;
  std::shared_ptr<HelperConnection> counted;
  PrivilegeHelper privilege{
      std::make_shared<test::ScriptedInstallation>("", true),
      [this](const std::string& name) { return DBusHelperConnection::make(name, options()); }};
};

TEST_F(DBusHelperConnectionTest, anEventAndItsReplyKeepEveryByte) {
  startService(Service::echo);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  const HelperDictionary dictionary = {{"/tmp/\xff\n-rf %20", HelperDictionary{{"0", 7}, {"1", -1}}},
                                       {"OperationValue", 2}};
  const Reply reply = ask(*held, kDelete, dictionary);
  EXPECT_TRUE(reply.flag);
  EXPECT_EQ(reply.code, kDelete);
  EXPECT_TRUE(reply.dictionary == dictionary);
}

TEST_F(DBusHelperConnectionTest, flagAndCodeComeFromTheHelper) {
  startService([](const Service::Event&, Service::Result&& result) {
    Service::reply(std::move(result), false, -5, sealedReply(std::nullopt));
  });
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  const Reply reply = ask(*held, 2, {{"OperationValue", 0}});
  EXPECT_FALSE(reply.flag);
  EXPECT_EQ(reply.code, -5);
  EXPECT_FALSE(reply.dictionary.has_value());
  EXPECT_EQ(service->events().at(0).id, 2);
}

TEST_F(DBusHelperConnectionTest, eachPathTravelsWithWhatTheSenderSees) {
  startService(Service::echo);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  const std::string file = folder.file("a");
  const std::string missing = folder.path("b");
  ask(*held, kDelete, {{file, HelperDictionary()}, {missing, HelperDictionary()}, {"Operation", 1}});
  ASSERT_EQ(service->events().size(), 1U);
  const std::optional<HelperMessage> message = service->events()[0].message;
  ASSERT_TRUE(message.has_value());
  // In the order of the keys: "/.../a", "/.../b", "Operation".
  ASSERT_EQ(message->views.size(), 3U);
  EXPECT_TRUE(message->views[0] == viewOf(file));
  EXPECT_EQ(message->views[0].kind, SenderView::Kind::Present);
  EXPECT_EQ(message->views[1].kind, SenderView::Kind::Absent);
  EXPECT_EQ(message->views[2].kind, SenderView::Kind::NoPath);
}

TEST_F(DBusHelperConnectionTest, versionAndUninstallAreAsked) {
  startService(Service::echo);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  std::promise<std::string> version;
  held->getHelperVersion([&](const std::string& text) { version.set_value(text); });
  EXPECT_EQ(version.get_future().get(), "1.2.3");
  std::promise<std::pair<bool, std::string>> uninstalled;
  held->uninstall([&](bool flag, const std::string& text) { uninstalled.set_value({flag, text}); });
  EXPECT_EQ(uninstalled.get_future().get(), std::pair(true, std::string("gone")));
}

TEST_F(DBusHelperConnectionTest, anEventMayNameVeryManyPaths) {
  startService(Service::echo);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  const HelperDictionary paths = test::manyPaths(33'000, 1000);  // 33 MB
  EXPECT_TRUE(ask(*held, kDelete, paths, 5 * test::kPatience).dictionary == paths);
}

TEST_F(DBusHelperConnectionTest, anEventMayHave200Megabytes) {
  startService([](const Service::Event& event, Service::Result&& result) {
    const bool isWhole = event.message.has_value() && event.message->dictionary->size() == 200;
    Service::reply(std::move(result), isWhole, 0, sealedReply(std::nullopt));
  });
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  EXPECT_TRUE(ask(*held, kDelete, test::manyPaths(200, 1'000'000), 5 * test::kPatience).flag);
}

TEST_F(DBusHelperConnectionTest, anEventOverACapIsAnsweredAtOnce) {
  startService(Service::echo);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  const Reply reply = ask(*held, kDelete, overACap());
  EXPECT_FALSE(reply.flag);
  EXPECT_EQ(reply.code, static_cast<std::int32_t>(HelperEventErrorID::NoCause));
  EXPECT_TRUE(reply.dictionary == refusalOf(kDelete, overACap()));
  EXPECT_TRUE(service->events().empty());
  EXPECT_EQ(privilege.helpTool(), held);
}

TEST_F(DBusHelperConnectionTest, aCleanThatIsRefusedAsAWholeIsOneWhosePathsFailed) {
  startService([](const Service::Event& event, Service::Result&& result) {
    Service::reply(std::move(result), event.id == kDelete, 3, sealedReply(HelperDictionary()));
  });
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  const HelperDictionary notDone{{"DeleteStatus", 2}, {"DeleteDesc", "Nothing was done."}};
  const Reply clean = ask(*held, kMaintenance, {{"OperationValue", 2}, {"/a", HelperDictionary()}});
  EXPECT_FALSE(clean.flag);
  EXPECT_EQ(clean.code, 3);
  EXPECT_TRUE(clean.dictionary == (HelperDictionary{{"/a", notDone}}));
  EXPECT_TRUE(ask(*held, kMaintenance, {{"OperationValue", 0}}).dictionary == HelperDictionary());
  EXPECT_TRUE(ask(*held, kDelete, {{"/a", HelperDictionary()}}).dictionary == HelperDictionary());
}

TEST_F(DBusHelperConnectionTest, repliesComeInAnyOrder) {
  std::mutex mutex;
  std::vector<Service::Result> waiting;
  startService([&](const Service::Event& event, Service::Result&& result) {
    const std::lock_guard lock(mutex);
    waiting.push_back(std::move(result));
    if (event.id != 2) return;
    for (std::size_t i = waiting.size(); i-- > 0;) {
      Service::reply(std::move(waiting[i]), true, static_cast<std::int32_t>(i), sealedReply(std::nullopt));
    }
  });
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  std::vector<std::int32_t> codes(3, -1);
  std::atomic<int> done = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    held->handleEvent(static_cast<std::int32_t>(i), {},
                      [&, i](bool, std::int32_t code, const std::optional<HelperDictionary>&) {
                        codes[i] = code;
                        ++done;
                      });
  }
  EXPECT_TRUE(test::runMainLoopUntil([&] { return done == 3; }));
  EXPECT_EQ(codes, (std::vector<std::int32_t>{0, 1, 2}));
}

TEST_F(DBusHelperConnectionTest, aReplyInUnsealedMemoryIsRefused) {
  expectLostCall([](const Service::Event&, Service::Result&& result) {
    const std::string bytes =
        encodeHelperMessage({HelperMessage::Kind::Reply, HelperDictionary(), {}}).value_or("");
    const FileDescriptor memory(::memfd_create("unsealed", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    EXPECT_EQ(::write(memory.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    Service::reply(std::move(result), true, 0, memory);
  });
}

TEST_F(DBusHelperConnectionTest, aReplyThatIsNoMessageIsRefused) {
  expectLostCall([](const Service::Event&, Service::Result&& result) {
    Service::reply(std::move(result), true, 0, SealedMemory::make("nonsense"));
  });
}

TEST_F(DBusHelperConnectionTest, anErrorIsNoReply) {
  expectLostCall([](const Service::Event&, Service::Result&& result) {
    result.returnError(sdbus::Error("org.example.Error.Failed", "no"));
  });
}

TEST_F(DBusHelperConnectionTest, aHelperThatVanishesInMidCallAnswersNothing) {
  startService(keepSilent);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  askInVain(*held);
  ASSERT_TRUE(service->waitForEvents(1));
  service.reset();
  EXPECT_TRUE(waitUntilFieldsAreClear());
  EXPECT_EQ(replies, 0);
}

TEST_F(DBusHelperConnectionTest, anIdleHelperThatVanishesClearsTheFields) {
  startService(Service::echo);
  ASSERT_NE(helper(), nullptr);
  service.reset();
  EXPECT_TRUE(waitUntilFieldsAreClear());
}

TEST_F(DBusHelperConnectionTest, aBusThatVanishesClearsTheFields) {
  startService(Service::echo);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  // A service would not survive its bus.
  service.reset();
  bus.stop();
  EXPECT_TRUE(waitUntilFieldsAreClear());
}

TEST_F(DBusHelperConnectionTest, aBusThatVanishesInMidCallAnswersNothing) {
  startService(keepSilent);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  askInVain(*held);
  askInVain(*held);
  ASSERT_TRUE(service->waitForEvents(2));
  bus.stop();
  EXPECT_TRUE(waitUntilFieldsAreClear());
  EXPECT_EQ(replies, 0);
  const test::LeaksOfOthers leaks;  // sdbus-c++ forgets a bus by an address where nobody listens
  EXPECT_EQ(helper(), nullptr);
}

TEST_F(DBusHelperConnectionTest, aBusThatVanishesWhileTheHelperStartsGivesAMessage) {
  const std::string gate = folder.path("gate");
  ASSERT_EQ(::mkfifo(gate.c_str(), 0600), 0);
  bus.addService(kName, "echo started > " + gate + "; exec cat " + gate);
  auto tool = std::async(std::launch::async,
                         [this] { return privilege.getHelperTool(kName, kSMDomainSystemLaunchd); });
  std::string word;
  std::ifstream(gate) >> word;
  EXPECT_EQ(word, "started");
  bus.stop();
  ASSERT_EQ(tool.wait_for(test::kPatience), std::future_status::ready);
  EXPECT_EQ(tool.get().message, "HelperTool as? HelperProtocol");
  // Lets the program end that waits for the other end.
  const FileDescriptor writer(::open(gate.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  EXPECT_TRUE(waitUntilFieldsAreClear());
}

TEST_F(DBusHelperConnectionTest, whatTheLastHelperAnsweredCountsWhenTheNextOneIsAsked) {
  std::promise<Service::Result> first;
  startService(
      [&first](const Service::Event&, Service::Result&& result) { first.set_value(std::move(result)); });
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  std::promise<std::int32_t> code;
  held->handleEvent(1, {}, [&](bool, std::int32_t value, const std::optional<HelperDictionary>&) {
    code.set_value(value);
  });
  Service::Result unanswered = first.get_future().get();
  // Just as the connection asks who is there.
  busCalls().before(0, [&] {
    // Whoever answers must be gone before the service is.
    Service::reply(Service::Result(std::move(unanswered)), true, 22, sealedReply(std::nullopt));
    service.reset();
    startService(Service::echo);
  });
  EXPECT_TRUE(ask(*held, kDelete, {}).flag);
  auto answer = code.get_future();
  ASSERT_EQ(answer.wait_for(test::kPatience), std::future_status::ready);
  EXPECT_EQ(answer.get(), 22);
}

// --- helpers that end ---

TEST_F(DBusHelperConnectionTest, aCallThatReachedNobodyGoesToTheNextHelper) {
  startService(Service::echo);
  const auto held = countedHelper();
  ASSERT_NE(held, nullptr);
  busCalls().before(kQuestions, [&] { replaceService(Service::echo); });
  const HelperDictionary event = {{"/a", HelperDictionary{{"0", 7}}}};
  const Reply reply = ask(*held, kDelete, event);
  EXPECT_TRUE(reply.flag);
  EXPECT_TRUE(reply.dictionary == event);
  EXPECT_EQ(service->events().size(), 1U);
  EXPECT_EQ(losses, 0);
}

TEST_F(DBusHelperConnectionTest, aCallGoesOutTwiceAtMost) {
  startService(Service::echo);
  const auto held = countedHelper();
  ASSERT_NE(held, nullptr);
  busCalls().before(kQuestions, [&] {
    replaceService(Service::echo);
    busCalls().before(kQuestions, [&] { replaceService(Service::echo); });
  });
  askInVain(*held);
  EXPECT_TRUE(waitForLoss());
  EXPECT_TRUE(ask(*held, kDelete, {}).flag);  // later than any third try
  EXPECT_EQ(service->events().size(), 1U);
  EXPECT_EQ(replies, 0);
  EXPECT_EQ(losses, 1);
}

TEST_F(DBusHelperConnectionTest, aCallThatMayHaveBeenDoneIsNotSentAgain) {
  std::promise<void> isFree;
  startService([&](const Service::Event&, Service::Result&&) {
    service->giveUpName();
    isFree.set_value();
  });
  const auto held = countedHelper();
  ASSERT_NE(held, nullptr);
  askInVain(*held);
  isFree.get_future().wait();
  std::unique_ptr<Service> last = std::move(service);
  startService(Service::echo);
  last.reset();
  EXPECT_TRUE(waitForLoss());
  EXPECT_TRUE(ask(*held, kDelete, {}).flag);
  EXPECT_EQ(service->events().size(), 1U);
  EXPECT_EQ(replies, 0);
  EXPECT_EQ(losses, 1);
}

TEST_F(DBusHelperConnectionTest, onlyTheBusKnowsThatACallReachedNobody) {
  for (const char* name :
       {"org.freedesktop.DBus.Error.ServiceUnknown", "org.freedesktop.DBus.Error.NameHasNoOwner"}) {
    losses = 0;
    startService([name](const Service::Event&, Service::Result&& result) {
      result.returnError(sdbus::Error(name, "somebody else is not there"));
    });
    const auto held = countedHelper();
    ASSERT_NE(held, nullptr);
    askInVain(*held);
    EXPECT_TRUE(waitForLoss());
    EXPECT_EQ(service->events().size(), 1U) << name;
    service.reset();
  }
  EXPECT_EQ(replies, 0);
}

TEST_F(DBusHelperConnectionTest, closingGoesToNoOtherHelperThatItWouldHaveToStart) {
  const std::string mark = folder.path("started");
  bus.addService(kName, "/usr/bin/touch " + mark + "; exit 1");
  startService(Service::echo);
  const auto held = countedHelper();
  ASSERT_NE(held, nullptr);
  busCalls().before(kQuestions, [&] { endService(); });
  askInVain(*held, kCloseHelper);
  EXPECT_TRUE(waitForLoss());
  EXPECT_FALSE(std::filesystem::exists(mark));
  EXPECT_EQ(replies, 0);
}

TEST_F(DBusHelperConnectionTest, aHelperThatGoesBeforeItsUserIsKnownIsLookedUpAgain) {
  startService(Service::echo);
  const auto held = countedHelper();
  ASSERT_NE(held, nullptr);
  busCalls().before(1, [&] { replaceService(Service::echo); });
  EXPECT_TRUE(ask(*held, kDelete, {}).flag);
  busCalls().before(1, [&] { replaceService(Service::echo); });
  EXPECT_NE(counted->remoteObjectProxyWithErrorHandler([] {}), nullptr);
  EXPECT_EQ(losses, 0);
}

TEST_F(DBusHelperConnectionTest, aHelperThatGaveUpItsNameStillAnswers) {
  std::promise<Service::Result> waiting;
  startService([&](const Service::Event&, Service::Result&& result) {
    service->giveUpName();
    waiting.set_value(std::move(result));
  });
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  std::promise<std::int32_t> code;
  held->handleEvent(kDelete, {}, [&](bool, std::int32_t value, const std::optional<HelperDictionary>&) {
    code.set_value(value);
  });
  auto result = waiting.get_future();
  ASSERT_TRUE(waitUntilFieldsAreClear()) << "the connection knows that the name is free";
  const std::unique_ptr<Service> last = std::move(service);
  startService(Service::echo);
  EXPECT_TRUE(ask(*held, kDelete, {}).flag);
  Service::reply(result.get(), true, 22, sealedReply(std::nullopt));
  auto answer = code.get_future();
  ASSERT_EQ(answer.wait_for(test::kPatience), std::future_status::ready);
  EXPECT_EQ(answer.get(), 22);
}

TEST_F(DBusHelperConnectionTest, noCallHasATimeOut) {
  startService(Service::echo);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  busCalls().takeTimeouts();
  ask(*held, kDelete, {});
  const std::vector<std::uint64_t> handed = busCalls().takeTimeouts();
  ASSERT_FALSE(handed.empty());
  EXPECT_EQ(handed.back(), UINT64_MAX);
}

TEST_F(DBusHelperConnectionTest, theHelperMayTakeAnyTimeToStart) {
  bus.addService(kName, "exit 1");
  busCalls().takeTimeouts();
  EXPECT_EQ(helper(), nullptr);
  const std::vector<std::uint64_t> handed = busCalls().takeTimeouts();
  EXPECT_NE(std::ranges::find(handed, UINT64_MAX), handed.end());
}

TEST_F(DBusHelperConnectionTest, theLastHolderMayGoWhileTheHelperDoes) {
  const auto owner = sdbus::createSessionBusConnectionWithAddress(bus.address());
  for (int i = 0; i < 2000; ++i) {
    owner->requestName(kName);
    auto connection = DBusHelperConnection::make(kName, options());
    ASSERT_NE(connection, nullptr);
    connection->resume();
    ASSERT_NE(connection->remoteObjectProxyWithErrorHandler([] {}), nullptr);
    owner->releaseName(kName);
    // The connection learns of it about now.
    for (int spin = 0; spin < i % 100; ++spin) std::this_thread::yield();
    connection.reset();
  }
}

TEST_F(DBusHelperConnectionTest, withoutDescriptorsThereIsNoConnection) {
  if (test::kHasAddressChecker) GTEST_SKIP() << "the checker needs descriptors too";
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const FileDescriptor next(::memfd_create("next", MFD_CLOEXEC));
  int found = 0;
  for (rlim_t more = 0; more < 8; ++more) {
    const rlimit few{static_cast<rlim_t>(next.get()) + 1 + more, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    found += DBusHelperConnection::make(kName, options()) != nullptr ? 1 : 0;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  }
  EXPECT_GT(found, 0);
  EXPECT_LT(found, 8);
}

TEST_F(DBusHelperConnectionTest, callsOfADeadConnectionAreLost) {
  startService(Service::echo);
  const auto connection = DBusHelperConnection::make(kName, options());
  ASSERT_NE(connection, nullptr);
  std::atomic<bool> isInvalid = false;
  std::atomic<int> lost = 0;
  connection->setInvalidationHandler([&] { isInvalid = true; });
  connection->resume();
  const auto proxy = connection->remoteObjectProxyWithErrorHandler([&] { ++lost; });
  ASSERT_NE(proxy, nullptr);
  service.reset();
  bus.stop();
  EXPECT_TRUE(test::runMainLoopUntil([&] { return isInvalid.load(); }));
  askInVain(*proxy);
  proxy->getHelperVersion([this](const std::string&) { ++replies; });
  EXPECT_TRUE(test::runMainLoopUntil([&] { return lost == 2; }));
  EXPECT_EQ(connection->remoteObjectProxyWithErrorHandler([] {}), nullptr);
  EXPECT_EQ(replies, 0);
}

TEST_F(DBusHelperConnectionTest, aKeptProxyReachesTheNextHelper) {
  startService(Service::echo);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  service.reset();
  ASSERT_TRUE(waitUntilFieldsAreClear());
  startService(Service::echo);
  EXPECT_TRUE(ask(*held, kDelete, {}).flag);
}

TEST_F(DBusHelperConnectionTest, nobodyButTheRightUserIsTrusted) {
  startService(Service::echo);
  const auto connection = DBusHelperConnection::make(kName, {bus.address(), ::getuid() + 1});
  ASSERT_NE(connection, nullptr);
  connection->resume();
  EXPECT_EQ(connection->remoteObjectProxyWithErrorHandler([] {}), nullptr);
  EXPECT_TRUE(service->events().empty());
}

TEST_F(DBusHelperConnectionTest, eachCallLooksAtTheOwnerAgain) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can be somebody else";
  const passwd* const nobody = ::getpwnam("nobody");  // a bus turns away whom it does not know
  ASSERT_NE(nobody, nullptr);
  startService(Service::echo);
  std::atomic<int> lost = 0;
  const auto connection = DBusHelperConnection::make(kName, options());
  ASSERT_NE(connection, nullptr);
  const auto proxy = connection->remoteObjectProxyWithErrorHandler([&] { ++lost; });
  ASSERT_NE(proxy, nullptr);
  service.reset();
  std::filesystem::permissions(bus.folder(), std::filesystem::perms::all);
  std::thread([this, nobody] {
    // Of this thread alone; the C library would change all of them.
    ASSERT_EQ(::syscall(SYS_setresuid, -1, nobody->pw_uid, -1), 0);
    startService(Service::echo);
  }).join();
  askInVain(*proxy);
  EXPECT_TRUE(test::runMainLoopUntil([&] { return lost + replies > 0; }));
  EXPECT_EQ(replies, 0);
  EXPECT_TRUE(service->events().empty());
}

TEST_F(DBusHelperConnectionTest, aHelperThatCannotBeStartedIsNone) {
  const PrivilegeHelper::Tool none = privilege.getHelperTool(kName, kSMDomainSystemLaunchd);
  EXPECT_EQ(none.helper, nullptr);
  EXPECT_EQ(none.message, "HelperTool as? HelperProtocol");
}

TEST_F(DBusHelperConnectionTest, theBusStartsTheHelper) {
  const std::string mark = folder.path("started");
  bus.addService(kName, "/usr/bin/touch " + mark + "; exit 1");
  EXPECT_EQ(helper(), nullptr);
  EXPECT_TRUE(std::filesystem::exists(mark));
}

TEST_F(DBusHelperConnectionTest, closingNeverStartsAHelper) {
  const std::string mark = folder.path("started");
  bus.addService(kName, "/usr/bin/touch " + mark + "; exit 1");
  std::atomic<int> lost = 0;
  startService(Service::echo);
  const auto connection = DBusHelperConnection::make(kName, options());
  ASSERT_NE(connection, nullptr);
  const auto proxy = connection->remoteObjectProxyWithErrorHandler([&] { ++lost; });
  ASSERT_NE(proxy, nullptr);
  service.reset();
  askInVain(*proxy, kCloseHelper);
  EXPECT_TRUE(test::runMainLoopUntil([&] { return lost == 1; }));
  EXPECT_FALSE(std::filesystem::exists(mark));
  askInVain(*proxy, kDelete);
  EXPECT_TRUE(test::runMainLoopUntil([&] { return lost == 2; }));
  EXPECT_TRUE(std::filesystem::exists(mark));
  EXPECT_EQ(replies, 0);
}

TEST_F(DBusHelperConnectionTest, aNameThatNoBusTakesHasNoConnection) {
  EXPECT_EQ(DBusHelperConnection::make("Helper", options()), nullptr);
}

TEST(DBusHelperConnection, withoutASystemBusThereIsNoConnection) {
  const test::TemporaryFolder folder;
  const std::string nowhere = "unix:path=" + folder.path("nowhere");
  const test::ScopedVariable address("DBUS_SYSTEM_BUS_ADDRESS", nowhere.c_str());
  EXPECT_EQ(DBusHelperConnection::make(kName), nullptr);
}

TEST_F(DBusHelperConnectionTest, aReplyMayDropTheLastHolders) {
  startService(Service::echo);
  auto connection = DBusHelperConnection::make(kName, options());
  ASSERT_NE(connection, nullptr);
  connection->resume();
  auto held = connection->remoteObjectProxyWithErrorHandler([] {});
  ASSERT_NE(held, nullptr);
  std::promise<void> isDone;
  held->handleEvent(kDelete, {}, [&isDone](bool, std::int32_t, const std::optional<HelperDictionary>&) {
    isDone.set_value();
  });
  held.reset();
  connection.reset();
  EXPECT_EQ(isDone.get_future().wait_for(test::kPatience), std::future_status::ready);
}

TEST_F(DBusHelperConnectionTest, aReplyMayAskForTheHelperAgain) {
  startService(Service::echo);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  const auto connection = privilege.helpConnect();
  std::promise<bool> isThere;
  held->handleEvent(kDelete, {}, [&](bool, std::int32_t, const std::optional<HelperDictionary>&) {
    isThere.set_value(connection->remoteObjectProxyWithErrorHandler([] {}) != nullptr);
  });
  EXPECT_TRUE(isThere.get_future().get());
}

TEST_F(DBusHelperConnectionTest, repliesLeaveNoDescriptorsOpen) {
  startService(Service::echo);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  ask(*held, kDelete, {});
  const std::size_t before = test::openDescriptors();
  for (int i = 0; i < 20; ++i) ask(*held, kDelete, {{"/a", HelperDictionary()}});
  EXPECT_LT(test::openDescriptors(), before + 8);  // the last ones may still be on their way out
}

}  // namespace
}  // namespace sorrel
