#include "SorrelFramework/HelpTool/DBusHelperConnection.hpp"

#include <fcntl.h>
#include <sdbus-c++/sdbus-c++.h>

#include <exception>
#include <future>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/HelpTool/EventRefusal.hpp"
#include "SorrelFramework/HelpTool/HelperWireNames.hpp"
#include "SorrelFramework/HelpTool/PollingThread.hpp"
#include "SorrelFramework/HelpTool/SealedMessage.hpp"

namespace sorrel {
namespace {

constexpr const char* kBus = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";
constexpr std::uint64_t kNoTimeout = UINT64_MAX;

/// Sealed bytes of an event with what this process sees under its paths; not open if it is over a cap or does
/// not fit into memory.
FileDescriptor sealedEvent(HelperMessage& message) {
  if (message.dictionary->size() > HelperLimits::paths) return FileDescriptor();
  message.views.reserve(message.dictionary->size());
  for (const auto& [key, value] : *message.dictionary) message.views.push_back(viewOf(key));
  return SealedMessage::seal(message);
}

/// True if the bus itself says that there was nobody to hand the call to. Of a helper that goes with a call
/// nobody knows whether it was done; and what a helper says about a third one says nothing of this call.
bool wasNeverDelivered(const sdbus::MethodReply& reply, const sdbus::Error& error) {
  const std::string& name = error.getName();
  const bool isNobody = name == "org.freedesktop.DBus.Error.ServiceUnknown" ||
                        name == "org.freedesktop.DBus.Error.NameHasNoOwner";
  return isNobody && reply.getSender() == kBus;
}

}  // namespace

/// The bus and its thread. Whatever is sdbus-c++ is touched on that thread only, and a callback of sdbus-c++
/// does no more than post what it got: no reply block runs inside one, and no object ends in its own
/// callback.
class DBusHelperConnection::Link : public std::enable_shared_from_this<Link> {
 public:
  /// Puts the arguments into a call.
  using Arguments = std::function<void(sdbus::MethodCall&)>;
  /// Takes the results out of a reply, on the thread of the bus but inside its callback; the answer runs
  /// after that. No answer: the reply is not sound.
  using Results = std::function<std::function<void()>(sdbus::MethodReply&)>;

  struct Call {
    const char* method = nullptr;
    bool startsHelper = true;
    Arguments arguments;
    Results results;
    std::shared_ptr<const Handler> onLoss;
  };
  using SharedCall = std::shared_ptr<const Call>;

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

  /// Runs `task` on the thread of the bus; it holds the link until then. Not at all if the last holder has
  /// let go: the thread may still be handling what came in.
  void onThread(std::function<void(Link&)> task) {
    auto self = weak_from_this().lock();
    if (self == nullptr) return;
    thread_.post([self = std::move(self), task = std::move(task)] { task(*self); });
  }

  /// Blocks until the helper runs, or is known not to.
  bool hasHelper() {
    if (thread_.isCurrent()) return !trustedOwner(true).empty();
    const auto answer = std::make_shared<std::promise<bool>>();
    onThread([answer](Link& link) { answer->set_value(!link.trustedOwner(true).empty()); });
    return answer->get_future().get();
  }

  /// On the thread of the bus.
  void send(const SharedCall& call, bool isRepeated = false) {
    const std::string owner = trustedOwner(call->startsHelper);
    if (owner.empty() || !guarded([&] { sendTo(owner, call, isRepeated); })) lose(call->onLoss);
  }

 private:
  /// A call on its way. It keeps the link alive: a reply comes even if nobody holds a proxy any more. It ends
  /// with its reply or with the bus, not with the helper's name, which a helper gives up before it ends.
  struct Pending {
    std::shared_ptr<Link> link;
    std::unique_ptr<sdbus::IProxy> helper;
    SharedCall call;
    bool isRepeated = false;
    bool isAnswered = false;  // what follows from the answer is a task of the thread
  };

  static void lose(const std::shared_ptr<const Handler>& onLoss) {
    if (onLoss != nullptr && *onLoss) (*onLoss)();
  }

  /// True unless the bus said no. An exception of sdbus-c++ goes no further.
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

  /// The unique name of the helper if its owner is who he has to be, else "".
  std::string trustedOwner(bool startsHelper) {
    // A helper may end just now; the one after it stays for a while.
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

  void sendTo(const std::string& owner, const SharedCall& call, bool isRepeated) {
    auto helper = sdbus::createProxy(*connection_, owner, names_.objectPath);
    sdbus::MethodCall message = helper->createMethodCall(names_.interface, call->method);
    if (call->arguments) call->arguments(message);
    const std::uint64_t number = ++lastCall_;
    helper->callMethod(
        message,
        [this, number](sdbus::MethodReply& reply, const sdbus::Error* error) {
          finish(number, reply, error);
        },
        kNoTimeout);
    pending_.emplace(number, Pending{shared_from_this(), std::move(helper), call, isRepeated});
  }

  /// Inside the callback of sdbus-c++, where neither this object nor the call's proxy may go.
  void finish(std::uint64_t number, sdbus::MethodReply& reply, const sdbus::Error* error) {
    Pending& pending = pending_.at(number);
    pending.isAnswered = true;
    std::function<void()> answer;
    if (error == nullptr) guarded([&] { answer = pending.call->results(reply); });
    const bool goesAgain = error != nullptr && !pending.isRepeated && wasNeverDelivered(reply, *error);
    onThread([number, call = pending.call, answer = std::move(answer), goesAgain](Link& link) {
      link.pending_.erase(number);
      if (goesAgain) {
        link.send(call, true);
      } else if (answer) {
        answer();
      } else {
        lose(call->onLoss);
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

  /// Ends the calls on their way without a reply.
  void loseAll() {
    const auto lost = std::exchange(pending_, {});
    for (const auto& [number, pending] : lost) {
      if (!pending.isAnswered) lose(pending.call->onLoss);
    }
  }

  void busIsGone() {
    const auto self = weak_from_this().lock();  // the last call on its way may be what holds the link
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
  // All below on the thread of the bus alone; ended in reverse order, the thread first.
  std::unique_ptr<sdbus::IConnection> connection_;
  std::unique_ptr<sdbus::IProxy> bus_;
  sdbus::Slot ownerWatch_;
  std::string owner_;  // whom the bus named last
  std::map<std::uint64_t, Pending> pending_;
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
    send({HelperWireNames::getHelperVersion,
          true,
          {},
          [reply](sdbus::MethodReply& results) {
            std::string version;
            results >> version;
            return [reply, version] { reply(version); };
          },
          onLoss_});
  }

  void handleEvent(std::int32_t eventID, const HelperDictionary& eventDict, EventReply reply) override {
    link_->onThread(
        [eventID, dictionary = eventDict, reply = std::move(reply), onLoss = onLoss_](Link& link) mutable {
          HelperMessage message{HelperMessage::Kind::Event, std::move(dictionary), {}};
          FileDescriptor memory = sealedEvent(message);
          if (!memory.isOpen()) {
            reply(false, static_cast<std::int32_t>(HelperEventErrorID::NoCause),
                  refusalOf(eventID, *message.dictionary));
            return;
          }
          link.send(std::make_shared<const Link::Call>(
              eventCall(eventID, std::move(memory),
                        completingReply(eventID, *message.dictionary, std::move(reply)), onLoss)));
        });
  }

  void uninstall(UninstallReply reply) override {
    send({HelperWireNames::uninstall,
          true,
          {},
          [reply](sdbus::MethodReply& results) {
            bool flag = false;
            std::string text;
            results >> flag >> text;
            return [reply, flag, text] { reply(flag, text); };
          },
          onLoss_});
  }

 private:
  void send(Link::Call call) {
    link_->onThread(
        [call = std::make_shared<const Link::Call>(std::move(call))](Link& link) { link.send(call); });
  }

  static Link::Call eventCall(std::int32_t eventID, FileDescriptor memory, EventReply reply,
                              std::shared_ptr<const Handler> onLoss) {
    const auto held = std::make_shared<FileDescriptor>(std::move(memory));
    Link::Call call;
    call.method = HelperWireNames::handleEvent;
    call.startsHelper = eventID != static_cast<std::int32_t>(HelperHanldeEventID::CloseHelper);
    call.arguments = [eventID, held](sdbus::MethodCall& message) {
      message << eventID << sdbus::UnixFd(held->get());
    };
    call.results = [reply = std::move(reply), onLoss](sdbus::MethodReply& results) {
      bool flag = false;
      std::int32_t code = 0;
      sdbus::UnixFd descriptor;
      results >> flag >> code >> descriptor;
      const auto received = std::make_shared<FileDescriptor>(descriptor.release());
      return [=] { deliver(reply, onLoss, flag, code, received->get()); };
    };
    call.onLoss = std::move(onLoss);
    return call;
  }

  static void deliver(const EventReply& reply, const std::shared_ptr<const Handler>& onLoss, bool flag,
                      std::int32_t code, int descriptor) {
    const std::optional<HelperMessage> message = SealedMessage::open(descriptor, HelperMessage::Kind::Reply);
    if (message.has_value()) {
      reply(flag, code, message->dictionary);
    } else if (*onLoss) {
      (*onLoss)();
    }
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
  } catch (const std::exception&) {  // of the bus, or of a system without descriptors or threads left
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

std::shared_ptr<HelperProtocol> DBusHelperConnection::remoteObjectProxyWithErrorHandler(Handler handler) {
  if (!link_->hasHelper()) return nullptr;
  return std::make_shared<Proxy>(link_, std::move(handler));
}

}  // namespace sorrel
