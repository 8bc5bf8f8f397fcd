#include "Helper/HelperService.hpp"

#include <poll.h>
#include <sdbus-c++/sdbus-c++.h>

#include <algorithm>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "Helper/Authority.hpp"
#include "Helper/CallList.hpp"
#include "Helper/HelperCall.hpp"
#include "Helper/RefusalBudget.hpp"
#include "Helper/Reply.hpp"
#include "Helper/Supervisor.hpp"
#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/HelpTool/HelperWireNames.hpp"
#include "SorrelFramework/HelpTool/SealedMemory.hpp"

namespace sorrel::helper {
namespace {

using Clock = Supervisor::Clock;
using Stage = HelperCall::Stage;
using EventResult = sdbus::Result<bool, std::int32_t, sdbus::UnixFd>;
using UninstallResult = sdbus::Result<bool, std::string>;

/// How long one that was started waits for the call that it was started for.
constexpr std::chrono::seconds kStart{2};
/// Messages of the bus in a row: who sends without end keeps nobody else's results waiting.
constexpr int kMostInARow = 64;

void sendReply(const EventResult& result, const Reply& reply) {
  if (reply.message.isOpen()) {
    result.returnResults(reply.flag, reply.code, sdbus::UnixFd(reply.message.get()));
  } else {
    // An answer that lists no failures would tell of success.
    result.returnError(sdbus::Error("org.freedesktop.DBus.Error.NoMemory", "no memory"));
  }
}

}  // namespace

class HelperService::Core {
 public:
  Core(std::unique_ptr<sdbus::IConnection> connection, HelperIdentity identity,
       HelperConfiguration configuration, HelperLog& log)
      : identity_(std::move(identity)),
        names_(identity_.service),
        configuration_(std::move(configuration)),
        log_(log),
        connection_(std::move(connection)),
        object_(sdbus::createObject(*connection_, names_.objectPath)),
        authority_(*connection_, identity_.service) {}

  bool run(int stopSignal);

 private:
  void offer();
  void handleEvent(EventResult&& result, std::int32_t eventID, int descriptor);
  void uninstall(UninstallResult&& result);
  void admit(std::unique_ptr<HelperCall> call);
  void identified(std::uint64_t id, std::optional<std::uint32_t> uid);
  void ask(HelperCall& call);
  void decided(std::uint64_t id, bool isAuthorised, const std::string& reason);
  void startWork(HelperCall& call);
  void finished(std::uint64_t id, const Supervisor::Ending& ending);
  void close(HelperCall& call);
  void removeInstallation(HelperCall& call);
  void refuse(HelperCall& call, const std::string& reason);
  Reply refusalOf(HelperCall& call);
  void answer(HelperCall& call, const Reply& reply);
  void answer(HelperCall& call, bool flag, const std::string& text);
  std::unique_ptr<HelperCall> end(const HelperCall& call);
  void callerLeft(const std::string& sender);
  void stop();
  bool serveBus();
  bool leave();
  void giveUpName();
  [[nodiscard]] bool isGone() const { return !hasName_ && Clock::now() >= farewell_; }
  [[nodiscard]] std::optional<Clock::time_point> deadline() const;
  void wait(int stopSignal);
  void logFailures(const HelperCall& call, const ResultTable& results);

  const HelperIdentity identity_;
  const HelperWireNames names_;
  const HelperConfiguration configuration_;
  HelperLog& log_;
  std::unique_ptr<sdbus::IConnection> connection_;  // outlives what came over it
  CallList calls_;
  RefusalBudget budget_;
  std::set<std::uint32_t> users_;  // for whom something was authorised
  bool isRefusing_ = false;        // takes no more work
  bool isLeaving_ = false;         // goes when no work is left
  bool hasName_ = false;
  Clock::time_point lastWork_ = Clock::now() + kStart;  // whoever starts it is about to call
  Clock::time_point farewell_;                          // without a name: when it goes
  Supervisor supervisor_;
  sdbus::Slot departures_;
  std::unique_ptr<sdbus::IObject> object_;
  Authority authority_;
};

void HelperService::Core::offer() {
  object_->registerMethod(HelperWireNames::getHelperVersion)
      .onInterface(names_.interface)
      .implementedAs([this] {
        lastWork_ = Clock::now();
        return identity_.version;
      });
  object_->registerMethod(HelperWireNames::handleEvent)
      .onInterface(names_.interface)
      .implementedAs([this](EventResult&& result, std::int32_t eventID, const sdbus::UnixFd& message) {
        handleEvent(std::move(result), eventID, message.get());
      });
  object_->registerMethod(HelperWireNames::uninstall)
      .onInterface(names_.interface)
      .implementedAs([this](UninstallResult&& result) { uninstall(std::move(result)); });
  object_->finishRegistration();
  // Before any call can come: the bus tells of a departure after the last call of who departs.
  departures_ = connection_->addMatch(
      "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
      "member='NameOwnerChanged',arg2=''",
      [this](sdbus::Message& signal) {
        std::string name;
        signal >> name;
        callerLeft(name);
      });
  connection_->requestName(identity_.service);
  hasName_ = true;
}

void HelperService::Core::handleEvent(EventResult&& result, std::int32_t eventID, int descriptor) {
  auto call = std::make_unique<HelperCall>();
  call->eventID = eventID;
  const auto back = std::make_shared<EventResult>(std::move(result));
  call->eventAnswer = [back](const Reply& reply) { sendReply(*back, reply); };
  call->memory = SealedMemory::map(descriptor, HelperLimits::bytes);
  admit(std::move(call));
}

void HelperService::Core::uninstall(UninstallResult&& result) {
  auto call = std::make_unique<HelperCall>();
  const auto back = std::make_shared<UninstallResult>(std::move(result));
  call->uninstallAnswer = [back](bool flag, const std::string& text) { back->returnResults(flag, text); };
  admit(std::move(call));
}

void HelperService::Core::admit(std::unique_ptr<HelperCall> call) {
  const std::string sender = object_->getCurrentlyProcessedMessage()->getSender();
  call->sender = sender;
  const bool hasRoom = calls_.hasRoomForCaller(sender);
  const std::uint64_t id = calls_.add(std::move(call));
  if (!hasRoom) return refuse(*calls_.find(id), "too-many");
  if (isGone()) return refuse(*calls_.find(id), "closing");
  authority_.userOf(sender, [this, id](std::optional<std::uint32_t> uid) { identified(id, uid); });
}

void HelperService::Core::identified(std::uint64_t id, std::optional<std::uint32_t> uid) {
  HelperCall* const call = calls_.find(id);
  if (call == nullptr) return;
  if (!uid.has_value()) return refuse(*call, "unknown-caller");
  call->uid = *uid;
  if (call->isEvent() && !call->readHeading()) return refuse(*call, "unsound-message");
  if (call->isEvent() && call->heading->kind == HelperHanldeEventID::CloseHelper) return close(*call);
  if (isRefusing_) return refuse(*call, "closing");
  if (!calls_.hasRoomFor(*uid)) return refuse(*call, "too-many");
  ask(*call);
}

void HelperService::Core::ask(HelperCall& call) {
  call.stage = Stage::Asking;
  authority_.check(call.sender, call.action(), call.paths(), call.id,
                   [this, id = call.id](bool isAuthorised, const std::string& reason) {
                     decided(id, isAuthorised, reason);
                   });
}

void HelperService::Core::decided(std::uint64_t id, bool isAuthorised, const std::string& reason) {
  HelperCall* const call = calls_.find(id);
  if (call == nullptr) return;
  if (!isAuthorised) return refuse(*call, reason);
  users_.insert(call->uid);
  if (!call->isEvent()) return removeInstallation(*call);
  if (!call->read()) return refuse(*call, "unsound-message");
  startWork(*call);
}

void HelperService::Core::startWork(HelperCall& call) {
  const EventJob job{call.form->kind, call.uid, *call.view, configuration_};
  const bool isStarted = supervisor_.start(
      call.id, job, [this, id = call.id](const Supervisor::Ending& ending) { finished(id, ending); });
  if (!isStarted) return refuse(call, "no-process");
  call.stage = Stage::Running;
  log_.info(call.described() + " paths=" + std::to_string(call.paths()) + " start");
}

void HelperService::Core::finished(std::uint64_t id, const Supervisor::Ending& ending) {
  HelperCall* const call = calls_.find(id);
  if (call == nullptr) return;
  const ResultTable& results = ending.results;
  const EventOutcome told =
      ending.outcome.value_or(EventOutcome{false, static_cast<std::int32_t>(call->form->failure())});
  logFailures(*call, results);
  log_.info(call->described() + " done=" + std::to_string(results.successes()) + " failed=" +
            std::to_string(call->paths() - results.successes()) + " flag=" + (told.flag ? "1" : "0") +
            " code=" + std::to_string(told.code) + " worker-memory=" + std::to_string(ending.peakMemory) +
            "KiB" + (ending.outcome.has_value() ? " end" : " killed"));
  answer(*call, Reply::of(*call->form, *call->view, results, told));
}

void HelperService::Core::logFailures(const HelperCall& call, const ResultTable& results) {
  if (results.successes() == call.paths()) return;
  const std::string number = "call " + std::to_string(call.id);
  for (const MessageView::Entry& entry : call.view->dictionary()) {
    if (!results.isKnown(entry.index) || results.isSuccess(entry.index)) continue;
    const auto status = results.status(entry.index, call.form->failure());
    if (!log_.refusal(number + ": not done: status=" + std::to_string(static_cast<int>(status)) + " path=\"" +
                      escapedForLog(entry.key) + "\" why=\"" + escapedForLog(results.text(entry.index, "")) +
                      "\"")) {
      return;
    }
  }
}

void HelperService::Core::close(HelperCall& call) {
  // Others may be at work, or at their password.
  const bool isHonoured = call.read() && users_.contains(call.uid) && calls_.size() == 1;
  if (!isHonoured) return refuse(call, "in-use");
  log_.info(call.described() + " end");
  isLeaving_ = true;
  answer(call, Reply::plain(true, HelperEventErrorID::Success));
}

void HelperService::Core::removeInstallation(HelperCall& call) {
  std::string text;
  const bool isGone = identity_.uninstall(text);
  log_.info(call.described() + " flag=" + (isGone ? "1" : "0") + " end");
  isLeaving_ = isLeaving_ || isGone;
  isRefusing_ = isRefusing_ || isGone;
  answer(call, isGone, text);
}

void HelperService::Core::refuse(HelperCall& call, const std::string& reason) {
  log_.refusal(call.described() + " refused: " + reason);
  if (call.isEvent()) {
    answer(call, refusalOf(call));
  } else {
    answer(call, false, std::string(kNotAuthorisedText));
  }
}

Reply HelperService::Core::refusalOf(HelperCall& call) {
  const bool isListed =
      call.heading.has_value() && budget_.take(call.uid, call.mostReplyBytes()) && call.read();
  return isListed ? Reply::refused(*call.form, *call.view) : Reply::refusedWhole();
}

void HelperService::Core::answer(HelperCall& call, const Reply& reply) {
  const auto ended = end(call);
  try {
    ended->eventAnswer(reply);
  } catch (const sdbus::Error& error) {
    log_.error(ended->described() + " no answer: " + escapedForLog(error.getMessage()));
  }
}

void HelperService::Core::answer(HelperCall& call, bool flag, const std::string& text) {
  const auto ended = end(call);
  try {
    ended->uninstallAnswer(flag, text);
  } catch (const sdbus::Error& error) {
    log_.error(ended->described() + " no answer: " + escapedForLog(error.getMessage()));
  }
}

std::unique_ptr<HelperCall> HelperService::Core::end(const HelperCall& call) {
  lastWork_ = Clock::now();
  return calls_.take(call.id);
}

void HelperService::Core::callerLeft(const std::string& sender) {
  for (const std::uint64_t id : calls_.from(sender)) {
    const HelperCall& call = *calls_.find(id);
    if (call.stage == Stage::Running) {
      supervisor_.killAfter(id, configuration_.grace, Clock::now());
      continue;
    }
    log_.refusal(call.described() + " refused: caller-left");
    if (call.stage == Stage::Asking) authority_.cancel(id);
    end(call);
  }
}

void HelperService::Core::stop() {
  isLeaving_ = isRefusing_ = true;
  for (const std::uint64_t id : calls_.all()) {
    HelperCall& call = *calls_.find(id);
    if (call.stage == Stage::Running) {
      supervisor_.kill(id);
    } else {
      refuse(call, "closing");
    }
  }
}

bool HelperService::Core::serveBus() {
  try {
    for (int i = 0; i < kMostInARow && connection_->processPendingRequest(); ++i) {
    }
    return true;
  } catch (const sdbus::Error& error) {
    log_.error("the bus is gone: " + escapedForLog(error.getMessage()));
    return false;
  }
}

/// True if there is nothing to stay for. Gives up the name first, so that later calls start the next helper,
/// and serves those that were on their way by then.
bool HelperService::Core::leave() {
  if (calls_.size() > 0) return false;
  if (!isLeaving_ && Clock::now() - lastWork_ >= configuration_.idle) {
    log_.info("nothing to do");
    isLeaving_ = true;
  }
  if (!isLeaving_) return false;
  if (!hasName_) return isGone();
  giveUpName();
  return false;
}

void HelperService::Core::giveUpName() {
  hasName_ = false;
  farewell_ = Clock::now() + configuration_.farewell;
  try {
    connection_->releaseName(identity_.service);
  } catch (const sdbus::Error& error) {
    log_.error("the name is kept: " + escapedForLog(error.getMessage()));
  }
}

/// When something is to be done though nothing happens.
std::optional<Clock::time_point> HelperService::Core::deadline() const {
  if (calls_.size() > 0) return supervisor_.deadline();
  return hasName_ ? lastWork_ + configuration_.idle : farewell_;
}

void HelperService::Core::wait(int stopSignal) {
  const sdbus::IConnection::PollData bus = connection_->getEventLoopPollData();
  // The service manager stops a service that gave up its name: what came before is done all the same.
  const bool mayBeStopped = hasName_ && !isRefusing_;
  std::vector<pollfd> descriptors = {{bus.fd, bus.events, 0}, {mayBeStopped ? stopSignal : -1, POLLIN, 0}};
  for (const int descriptor : supervisor_.descriptors()) descriptors.push_back({descriptor, POLLIN, 0});
  int timeout = bus.getPollTimeout();
  if (const auto until = deadline()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*until - Clock::now()).count();
    const int most = static_cast<int>(std::max<std::int64_t>(left, 0));
    timeout = timeout < 0 ? most : std::min(timeout, most);
  }
  // The results of a worker come one by one, a million of them at times: the bus is asked only if it has
  // news, or had more than it was asked for; no time-out then.
  int ready = 0;
  do {
    ready = ::poll(descriptors.data(), descriptors.size(), timeout);
    supervisor_.serve(Clock::now());
  } while (ready > 0 && timeout != 0 && descriptors[0].revents == 0 && descriptors[1].revents == 0 &&
           supervisor_.descriptors().size() + 2 == descriptors.size());
  if (descriptors[1].revents != 0) stop();
}

bool HelperService::Core::run(int stopSignal) {
  try {
    offer();
  } catch (const sdbus::Error& error) {
    log_.error("no name on the bus: " + escapedForLog(error.getMessage()));
    return false;
  }
  log_.info("version " + identity_.version + " serves " + identity_.service);
  while (serveBus()) {
    if (leave()) return true;
    wait(stopSignal);
  }
  return false;
}

HelperService::HelperService(std::unique_ptr<sdbus::IConnection> connection, HelperIdentity identity,
                             HelperConfiguration configuration, HelperLog& log)
    : core_(std::make_unique<Core>(std::move(connection), std::move(identity), std::move(configuration),
                                   log)) {}

HelperService::~HelperService() = default;

bool HelperService::run(int stopSignal) { return core_->run(stopSignal); }

}  // namespace sorrel::helper
