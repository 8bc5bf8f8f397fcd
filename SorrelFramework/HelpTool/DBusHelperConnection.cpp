#include "SorrelFramework/HelpTool/DBusHelperConnection.hpp"

#include <sdbus-c++/sdbus-c++.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <exception>
#include <future>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "SorrelFramework/HelpTool/EventRefusal.hpp"
#include "SorrelFramework/HelpTool/HelperEvent.hpp"
#include "SorrelFramework/HelpTool/HelperWireNames.hpp"
#include "SorrelFramework/HelpTool/PollingThread.hpp"
#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel {
namespace {

constexpr const char* kBus = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";
constexpr std::uint64_t kNoTimeout = UINT64_MAX;

/// Maximum number of attempts while it is certain that no helper has executed the call.
constexpr int kTries = 5;

/// True if the bus itself reports that it did not deliver the call: the owner is gone, or it has released the
/// name and with it the policy that lets calls through (AccessDenied). An error that the helper sends does
/// not prove that.
bool wasNeverDelivered(const sdbus::MethodReply& reply, const sdbus::Error& error) {
  constexpr std::array kNames = {"org.freedesktop.DBus.Error.ServiceUnknown",
                                 "org.freedesktop.DBus.Error.NameHasNoOwner",
                                 "org.freedesktop.DBus.Error.AccessDenied"};
  const bool isKnown = std::ranges::find(kNames, std::string_view(error.getName())) != kNames.end();
  return isKnown && reply.getSender() == kBus;
}

}  // namespace

/// The bus and its thread. All sdbus-c++ objects are used on that thread only, and a callback of sdbus-c++
/// only posts the received data: no reply block runs inside one, and no object is destroyed in its own
/// callback.
class DBusHelperConnection::Link : public std::enable_shared_from_this<Link> {
 public:
  /// Appends the arguments to a call.
  using Arguments = std::function<void(sdbus::MethodCall&)>;
  /// Extracts the results from a reply, on the bus thread and inside its callback; the returned function runs
  /// after that. An empty function means that the reply is malformed.
  using Results = std::function<std::function<void()>(sdbus::MethodReply&)>;

  /// The reason why a call has no results.
  struct Failure {
    bool wasNeverDelivered = false;
    std::string refusal;  ///< a word of HelperRefusal; "" if the helper has not refused it
    [[nodiscard]] bool goesToNextHelper() const {
      return wasNeverDelivered || refusal == HelperRefusal::closing;
    }
  };

  struct Call {
    const char* method = nullptr;
    bool startsHelper = true;
    Arguments arguments;
    Results results;
    std::function<void(Link&, const Failure&)> failed;
    int tries = kTries;
  };
  using SharedCall = std::shared_ptr<Call>;
  using SharedEvent = std::shared_ptr<HelperEvent>;

  Link(std::unique_ptr<sdbus::IConnection> connection, const std::string& machServiceName, Options options)
      : names_(machServiceName),
        options_(std::move(options)),
        connection_(std::move(connection)),
        bus_(sdbus::createProxy(*connection_, kBus, kBusPath)),
        thread_({[this] { return wait(); }, [this] { process(); }}) {}

  void start() { thread_.start(); }

  void setInvalidationHandler(Handler handler) {
    onThread([handler = std::move(handler)](Link& link) { link.onInvalidation_ = handler; });
  }

  void watchOwner() {
    onThread([](Link& link) {
      link.guarded([&link] {
        link.ownerWatch_ = link.connection_->addMatch(
            "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
            "member='NameOwnerChanged',arg0='" +
                link.names_.service + "'",
            [&link](sdbus::Message& signal) { link.ownerChanged(signal); });
      });
    });
  }

  /// Runs `task` on the bus thread; the task holds the link until then. Does nothing if the last holder has
  /// released the link: the thread may still be processing incoming messages.
  void onThread(std::function<void(Link&)> task) {
    auto self = weak_from_this().lock();
    if (self == nullptr) return;
    thread_.post([self = std::move(self), task = std::move(task)] { task(*self); });
  }

  /// Blocks until the helper runs, or is known not to run.
  bool hasHelper() {
    if (thread_.isCurrent()) return !trustedOwner(true).empty();
    const auto answer = std::make_shared<std::promise<bool>>();
    onThread([answer](Link& link) { answer->set_value(!link.trustedOwner(true).empty()); });
    return answer->get_future().get();
  }

  /// Runs on the bus thread. Sends to the current owner of the name, and again if no helper got it.
  void send(const SharedCall& call) {
    const std::string owner = trustedOwner(call->startsHelper);
    if (owner.empty()) return call->failed(*this, {});
    sendTo(owner, call, [this, call](const Failure& failure) {
      if (failure.goesToNextHelper() && --call->tries > 0) return send(call);
      call->failed(*this, failure);
    });
  }

  /// Runs on the bus thread: handles the event from Begin to the reply.
  void sendEvent(const SharedEvent& event) {
    if (!event->encode()) return event->refuse("");
    events_.insert(event);
    ++eventsUnderWay_;
    begin(event);
  }

  /// Any thread. True if there were events to stop.
  bool stopEvents() {
    if (eventsUnderWay_ == 0) return false;
    onThread([](Link& link) {
      for (const SharedEvent& event : link.events_) event->stop();
      if (!link.owner_.empty()) link.sendStop(link.owner_);
    });
    return true;
  }

 private:
  /// A pending call. It keeps the link alive, so that a reply arrives even if the caller has released its
  /// proxy. It ends with its reply or with the bus, not with the helper's name, which a helper releases
  /// before it ends.
  struct Pending {
    std::shared_ptr<Link> link;
    std::unique_ptr<sdbus::IProxy> helper;
    SharedCall call;
    std::function<void(const Failure&)> failed;
    bool isAnswered = false;  // the consequences of the answer run as a task of the thread
  };

  void begin(const SharedEvent& event) {
    auto call = std::make_shared<Call>();
    call->method = HelperWireNames::begin;
    call->arguments = [event](sdbus::MethodCall& message) {
      message << event->eventID() << event->operation() << event->paths() << event->bytes();
    };
    call->results = [this, event](sdbus::MethodReply& reply) {
      std::uint64_t ticket = 0;
      sdbus::UnixFd memory;
      reply >> ticket >> memory;
      const auto held = std::make_shared<FileDescriptor>(memory.release());
      return [this, event, ticket, held, owner = reply.getSender()] { run(event, owner, ticket, *held); };
    };
    call->failed = [event](Link& link, const Failure& failure) { link.endWithout(event, failure); };
    send(call);
  }

  void run(const SharedEvent& event, const std::string& owner, std::uint64_t ticket,
           const FileDescriptor& memory) {
    if (event->isStopped() || !event->fill(memory.get())) {
      sendStop(owner);
      return endWithout(event, {false, HelperRefusal::stopped});
    }
    auto call = std::make_shared<Call>();
    call->method = HelperWireNames::run;
    call->arguments = [ticket](sdbus::MethodCall& message) { message << ticket; };
    call->results = [this, event](sdbus::MethodReply& reply) {
      bool flag = false;
      std::int32_t code = 0;
      sdbus::UnixFd descriptor;
      reply >> flag >> code >> descriptor;
      const auto held = std::make_shared<FileDescriptor>(descriptor.release());
      return [this, event, flag, code, held] {
        end(event);
        event->deliver(flag, code, held->get());
      };
    };
    sendTo(owner, call, [this, event, call](const Failure& failure) {
      const bool isAgain = failure.goesToNextHelper() && !event->isStopped() && event->takeTry();
      isAgain ? begin(event) : endWithout(event, failure);
    });
  }

  void sendStop(const std::string& owner) {
    auto call = std::make_shared<Call>();
    call->method = HelperWireNames::stop;
    call->results = [](sdbus::MethodReply&) { return [] {}; };
    sendTo(owner, call, [](const Failure&) {});
  }

  void end(const SharedEvent& event) { eventsUnderWay_ -= events_.erase(event); }

  void endWithout(const SharedEvent& event, const Failure& failure) {
    end(event);
    if (!failure.refusal.empty()) return event->refuse(failure.refusal);
    event->lose(repliesToLostEvents);
  }

  /// False if the bus reported an error. Exceptions of sdbus-c++ are not propagated.
  template <class Work>
  bool guarded(const Work& work) {
    try {
      if (connection_ == nullptr) return false;
      work();
      return true;
    } catch (const sdbus::Error&) {
      return false;
    }
  }

  /// The unique name of the helper if its owner is the expected user, else "".
  std::string trustedOwner(bool startsHelper) {
    // A helper may be ending right now; its successor stays for a while.
    for (int look = 0; look < 2; ++look) {
      std::string owner = currentOwner();
      if (owner.empty() && startsHelper && startHelper()) owner = currentOwner();
      if (owner.empty()) break;
      const std::optional<std::uint32_t> uid = userOf(owner);
      if (!uid.has_value()) continue;
      if (*uid != options_.ownerUID) break;
      owner_ = owner;
      return owner;
    }
    return "";
  }

  std::string currentOwner() {
    std::string owner;
    guarded([&] {
      bus_->callMethod("GetNameOwner").onInterface(kBus).withArguments(names_.service).storeResultsTo(owner);
    });
    return owner;
  }

  std::optional<std::uint32_t> userOf(const std::string& owner) {
    std::uint32_t uid = 0;
    const bool isKnown = guarded([&] {
      bus_->callMethod("GetConnectionUnixUser").onInterface(kBus).withArguments(owner).storeResultsTo(uid);
    });
    return isKnown ? std::optional(uid) : std::nullopt;
  }

  bool startHelper() {
    return guarded([&] {
      std::uint32_t outcome = 0;
      bus_->callMethod("StartServiceByName")
          .onInterface(kBus)
          .withTimeout(kNoTimeout)
          .withArguments(names_.service, std::uint32_t{0})
          .storeResultsTo(outcome);
    });
  }

  void sendTo(const std::string& owner, const SharedCall& call, std::function<void(const Failure&)> failed) {
    const std::uint64_t number = ++lastCall_;
    const bool isSent = guarded([&] {
      auto helper = sdbus::createProxy(*connection_, owner, names_.objectPath);
      sdbus::MethodCall message = helper->createMethodCall(names_.interface, call->method);
      if (call->arguments) call->arguments(message);
      helper->callMethod(
          message,
          [this, number](sdbus::MethodReply& reply, const sdbus::Error* error) {
            finish(number, reply, error);
          },
          kNoTimeout);
      pending_.emplace(number, Pending{shared_from_this(), std::move(helper), call, failed});
    });
    if (!isSent) failed({});
  }

  [[nodiscard]] Failure failureOf(const sdbus::MethodReply& reply, const sdbus::Error& error) const {
    const bool isRefusal = error.getName() == names_.refusalName() && reply.getSender() != kBus;
    return {wasNeverDelivered(reply, error), isRefusal ? error.getMessage() : ""};
  }

  /// Runs inside the callback of sdbus-c++, where neither this object nor the call's proxy may be destroyed.
  void finish(std::uint64_t number, sdbus::MethodReply& reply, const sdbus::Error* error) {
    Pending& pending = pending_.at(number);
    pending.isAnswered = true;
    std::function<void()> answer;
    if (error == nullptr) guarded([&] { answer = pending.call->results(reply); });
    Failure failure = error == nullptr ? Failure() : failureOf(reply, *error);
    onThread([number, answer = std::move(answer), failure = std::move(failure),
              failed = pending.failed](Link& link) {
      const auto ended = link.pending_.extract(number);  // empty if the bus has gone meanwhile
      if (answer) {
        answer();
      } else {
        // Without a bus there is no other helper to try.
        failed(ended.empty() ? Failure() : failure);
      }
    });
  }

  void ownerChanged(sdbus::Message& signal) {
    std::string name;
    std::string before;
    std::string after;
    const bool isRead = guarded([&] { signal >> name >> before >> after; });
    if (!isRead || name != names_.service || before.empty() || before != owner_) return;
    owner_.clear();
    onThread([](Link& link) {
      if (link.onInvalidation_) link.onInvalidation_();
    });
  }

  /// Ends the pending calls without a reply.
  void loseAll() {
    const auto lost = std::exchange(pending_, {});
    for (const auto& [number, pending] : lost) {
      if (!pending.isAnswered) pending.failed({});
    }
  }

  void busIsGone() {
    const auto self = weak_from_this().lock();  // the last pending call may be the only holder of the link
    if (self == nullptr) return;
    ownerWatch_ = {};
    loseAll();
    bus_.reset();
    connection_.reset();
    if (onInvalidation_) onInvalidation_();
    onThread([](Link&) {});
  }

  PollingThread::Wait wait() {
    PollingThread::Wait wait;
    guarded([&] {
      const sdbus::IConnection::PollData data = connection_->getEventLoopPollData();
      wait = {data.fd, data.events, data.getPollTimeout()};
    });
    return wait;
  }

  void process() {
    const bool isAlive = connection_ == nullptr || guarded([&] {
                           while (connection_->processPendingRequest()) {
                           }
                         });
    if (!isAlive) busIsGone();
  }

  const HelperWireNames names_;
  const Options options_;
  // The members below are used on the bus thread only; they are destroyed in reverse order, the thread first.
  std::unique_ptr<sdbus::IConnection> connection_;
  std::unique_ptr<sdbus::IProxy> bus_;
  sdbus::Slot ownerWatch_;
  std::string owner_;  // the owner that the bus reported last
  std::map<std::uint64_t, Pending> pending_;
  std::set<SharedEvent> events_;
  std::atomic<std::size_t> eventsUnderWay_ = 0;
  std::uint64_t lastCall_ = 0;
  Handler onInvalidation_;
  PollingThread thread_;
};

/// The helper as its users see it.
class DBusHelperConnection::Proxy : public HelperProtocol {
 public:
  Proxy(std::shared_ptr<Link> link, Handler onLoss)
      : link_(std::move(link)), onLoss_(std::make_shared<const Handler>(std::move(onLoss))) {}

  void getHelperVersion(VersionReply reply) override {
    send(HelperWireNames::getHelperVersion, true, [reply](sdbus::MethodReply& results) {
      std::string version;
      results >> version;
      return [reply, version] { reply(version); };
    });
  }

  void handleEvent(std::int32_t eventID, const HelperDictionary& eventDict, EventReply reply) override {
    if (eventID == static_cast<std::int32_t>(HelperHanldeEventID::CloseHelper))
      return close(std::move(reply));
    auto event = std::make_shared<HelperEvent>(eventID, eventDict, std::move(reply), onLoss_);
    link_->onThread([event = std::move(event)](Link& link) { link.sendEvent(event); });
  }

  void uninstall(UninstallReply reply) override {
    const auto refused = [reply](const std::string& reason) { reply(false, refusalText(reason)); };
    const auto results = [reply](sdbus::MethodReply& words) {
      bool flag = false;
      std::string text;
      words >> flag >> text;
      return [reply, flag, text] { reply(flag, text); };
    };
    send(HelperWireNames::uninstall, true, results, refused);
  }

 private:
  void close(EventReply reply) {
    send(HelperWireNames::closeHelper, false, [reply = std::move(reply)](sdbus::MethodReply& results) {
      bool flag = false;
      results >> flag;
      const auto code = flag ? HelperEventErrorID::Success : HelperEventErrorID::NoCause;
      return [reply, flag, code] { reply(flag, static_cast<std::int32_t>(code), HelperDictionary()); };
    });
  }

  void send(const char* method, bool startsHelper, Link::Results results,
            std::function<void(const std::string&)> refused = {}) {
    auto call = std::make_shared<Link::Call>();
    call->method = method;
    call->startsHelper = startsHelper;
    call->results = std::move(results);
    call->failed = [refused = std::move(refused), onLoss = onLoss_](Link&, const Link::Failure& failure) {
      if (refused && !failure.refusal.empty()) return refused(failure.refusal);
      if (*onLoss) (*onLoss)();
    };
    link_->onThread([call = std::move(call)](Link& link) { link.send(call); });
  }

  std::shared_ptr<Link> link_;
  std::shared_ptr<const Handler> onLoss_;
};

DBusHelperConnection::DBusHelperConnection(std::shared_ptr<Link> link) : link_(std::move(link)) {}

std::shared_ptr<HelperConnection> DBusHelperConnection::make(const std::string& machServiceName,
                                                             const Options& options) {
  if (!HelperWireNames(machServiceName).isValid()) return nullptr;
  try {
    auto connection = options.busAddress.empty()
                          ? sdbus::createSystemBusConnection()
                          : sdbus::createSessionBusConnectionWithAddress(options.busAddress);
    auto link = std::make_shared<Link>(std::move(connection), machServiceName, options);
    link->start();
    return std::shared_ptr<HelperConnection>(new DBusHelperConnection(std::move(link)));
  } catch (const std::exception&) {  // from the bus, or from a system without descriptors or threads left
    return nullptr;
  }
}

std::shared_ptr<HelperConnection> DBusHelperConnection::make(const std::string& machServiceName) {
  return make(machServiceName, Options());
}

void DBusHelperConnection::setInvalidationHandler(Handler handler) {
  link_->setInvalidationHandler(std::move(handler));
}

void DBusHelperConnection::resume() { link_->watchOwner(); }

bool DBusHelperConnection::stopEvents() { return link_->stopEvents(); }

std::shared_ptr<HelperProtocol> DBusHelperConnection::remoteObjectProxyWithErrorHandler(Handler handler) {
  if (!link_->hasHelper()) return nullptr;
  return std::make_shared<Proxy>(link_, std::move(handler));
}

}  // namespace sorrel
