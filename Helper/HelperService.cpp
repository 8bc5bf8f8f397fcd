#include "Helper/HelperService.hpp"

#include <poll.h>
#include <sdbus-c++/sdbus-c++.h>

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "Helper/Authority.hpp"
#include "Helper/EventForm.hpp"
#include "Helper/Reply.hpp"
#include "Helper/Supervisor.hpp"
#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/HelpTool/HelperWireNames.hpp"
#include "SorrelFramework/HelpTool/SealedMemory.hpp"

namespace sorrel::helper {
namespace {

using EventResult = sdbus::Result<bool, std::int32_t, sdbus::UnixFd>;
using UninstallResult = sdbus::Result<bool, std::string>;

enum class Stage { Identifying, Asking, Running };

/// The content of an event. The view lies in the memory.
struct Event {
  SealedMemory memory;
  EventForm form;
  MessageView view;
};

/// A call that is under way.
struct Request {
  std::uint64_t id = 0;
  std::string sender;
  std::uint32_t uid = 0;
  Stage stage = Stage::Identifying;
  Action action = Action::Uninstall;
  std::optional<std::int32_t> eventID;  // none: Uninstall
  std::optional<SealedMemory> memory;   // of an event that is not yet read
  std::optional<Event> event;
  EventResult eventResult;
  UninstallResult uninstallResult;

  [[nodiscard]] bool isEvent() const { return eventID.has_value(); }
  [[nodiscard]] const char* name() const {
    if (!isEvent()) return nameOf(action);
    return event.has_value() ? event->form.name() : "event";
  }
  [[nodiscard]] std::size_t paths() const { return event.has_value() ? event->form.paths : 0; }
};

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
  void admit(std::unique_ptr<Request> request);
  void identified(std::uint64_t id, std::optional<std::uint32_t> uid);
  [[nodiscard]] bool readEvent(Request& request) const;
  [[nodiscard]] bool hasRoomFor(std::uint32_t uid) const;
  void ask(Request& request);
  void decided(std::uint64_t id, bool isAuthorised, const std::string& reason);
  void startWork(Request& request);
  void finished(std::uint64_t id, const Supervisor::Ending& ending);
  void close(Request& request);
  void removeInstallation(Request& request);
  void refuse(Request& request, const std::string& reason);
  void answer(Request& request, const Reply& reply);
  void callerLeft(const std::string& sender);
  void stop();
  bool serveBus();
  void wait(int stopSignal);

  [[nodiscard]] Request* find(std::uint64_t id) const {
    const auto found = requests_.find(id);
    return found == requests_.end() ? nullptr : found->second.get();
  }
  static std::string described(const Request& request) {
    return "call " + std::to_string(request.id) + ": uid=" + std::to_string(request.uid) +
           " sender=" + escapedForLog(request.sender) + " kind=" + request.name();
  }
  void logFailures(const Request& request, const ResultTable& results);

  const HelperIdentity identity_;
  const HelperWireNames names_;
  const HelperConfiguration configuration_;
  HelperLog& log_;
  std::unique_ptr<sdbus::IConnection> connection_;  // outlives what came over it
  std::map<std::uint64_t, std::unique_ptr<Request>> requests_;
  std::uint64_t lastID_ = 0;
  std::set<std::uint32_t> users_;  // for whom something was authorised
  bool isClosing_ = false;
  Supervisor supervisor_;
  sdbus::Slot departures_;
  std::unique_ptr<sdbus::IObject> object_;
  Authority authority_;
};

void HelperService::Core::offer() {
  object_->registerMethod(HelperWireNames::getHelperVersion)
      .onInterface(names_.interface)
      .implementedAs([this] { return identity_.version; });
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
}

void HelperService::Core::handleEvent(EventResult&& result, std::int32_t eventID, int descriptor) {
  auto request = std::make_unique<Request>();
  request->eventID = eventID;
  request->eventResult = std::move(result);
  request->memory = SealedMemory::map(descriptor, HelperLimits::bytes);
  admit(std::move(request));
}

void HelperService::Core::uninstall(UninstallResult&& result) {
  auto request = std::make_unique<Request>();
  request->uninstallResult = std::move(result);
  admit(std::move(request));
}

void HelperService::Core::admit(std::unique_ptr<Request> request) {
  const std::uint64_t id = ++lastID_;
  request->id = id;
  request->sender = object_->getCurrentlyProcessedMessage()->getSender();
  const std::string sender = request->sender;
  requests_.emplace(id, std::move(request));
  authority_.userOf(sender, [this, id](std::optional<std::uint32_t> uid) { identified(id, uid); });
}

void HelperService::Core::identified(std::uint64_t id, std::optional<std::uint32_t> uid) {
  Request* const request = find(id);
  if (request == nullptr) return;
  if (!uid.has_value()) return refuse(*request, "unknown-caller");
  request->uid = *uid;
  if (request->isEvent() && !readEvent(*request)) return refuse(*request, "unsound-message");
  if (request->event.has_value() && request->event->form.kind == HelperHanldeEventID::CloseHelper) {
    return close(*request);
  }
  if (isClosing_ || !hasRoomFor(*uid)) return refuse(*request, isClosing_ ? "closing" : "too-many");
  ask(*request);
}

bool HelperService::Core::readEvent(Request& request) const {
  if (!request.memory.has_value()) return false;
  const auto view = MessageView::of(request.memory->bytes(), HelperMessage::Kind::Event);
  if (!view.has_value()) return false;
  const auto form = EventForm::of(*request.eventID, *view);
  if (!form.has_value()) return false;
  request.event = Event{*std::exchange(request.memory, std::nullopt), *form, *view};
  request.action = form->action();
  return true;
}

bool HelperService::Core::hasRoomFor(std::uint32_t uid) const {
  std::size_t all = 0;
  std::size_t own = 0;
  for (const auto& [id, request] : requests_) {
    if (request->stage == Stage::Identifying) continue;
    ++all;
    if (request->uid == uid) ++own;
  }
  return own < kMostOfUser && all < kMost;
}

void HelperService::Core::ask(Request& request) {
  request.stage = Stage::Asking;
  authority_.check(request.sender, request.action, request.paths(), request.id,
                   [this, id = request.id](bool isAuthorised, const std::string& reason) {
                     decided(id, isAuthorised, reason);
                   });
}

void HelperService::Core::decided(std::uint64_t id, bool isAuthorised, const std::string& reason) {
  Request* const request = find(id);
  if (request == nullptr) return;
  if (!isAuthorised) return refuse(*request, reason);
  users_.insert(request->uid);
  if (request->isEvent()) {
    startWork(*request);
  } else {
    removeInstallation(*request);
  }
}

void HelperService::Core::startWork(Request& request) {
  const Event& event = *request.event;
  const EventJob job{event.form.kind, request.uid, event.view, configuration_};
  const bool isStarted = supervisor_.start(
      request.id, job, [this, id = request.id](const Supervisor::Ending& ending) { finished(id, ending); });
  if (!isStarted) return refuse(request, "no-process");
  request.stage = Stage::Running;
  log_.info(described(request) + " paths=" + std::to_string(request.paths()) + " start");
}

void HelperService::Core::finished(std::uint64_t id, const Supervisor::Ending& ending) {
  Request* const request = find(id);
  if (request == nullptr) return;
  const Event& event = *request->event;
  const ResultTable& results = ending.results;
  const EventOutcome told =
      ending.outcome.value_or(EventOutcome{false, static_cast<std::int32_t>(event.form.failure())});
  logFailures(*request, results);
  log_.info(described(*request) + " done=" + std::to_string(results.successes()) + " failed=" +
            std::to_string(request->paths() - results.successes()) + " flag=" + std::to_string(told.flag) +
            " code=" + std::to_string(told.code) + " worker-memory=" + std::to_string(ending.peakMemory) +
            "KiB" + (ending.outcome.has_value() ? " end" : " killed"));
  answer(*request, Reply::of(event.form, event.view, results, told));
}

void HelperService::Core::logFailures(const Request& request, const ResultTable& results) {
  if (results.successes() == request.paths()) return;
  const std::string call = "call " + std::to_string(request.id);
  for (const MessageView::Entry& entry : request.event->view.dictionary()) {
    if (!results.isKnown(entry.index) || results.isSuccess(entry.index)) continue;
    const auto status = results.status(entry.index, request.event->form.failure());
    if (!log_.refusal(call + ": not done: status=" + std::to_string(static_cast<int>(status)) + " path=\"" +
                      escapedForLog(entry.key) + "\" why=\"" + escapedForLog(results.text(entry.index, "")) +
                      "\"")) {
      return;
    }
  }
}

void HelperService::Core::close(Request& request) {
  // Others may be at work, or at their password.
  const bool isHonoured = users_.contains(request.uid) && requests_.size() == 1;
  if (!isHonoured) return refuse(request, "in-use");
  log_.info(described(request) + " end");
  isClosing_ = true;
  answer(request, Reply::plain(true, HelperEventErrorID::Success));
}

void HelperService::Core::removeInstallation(Request& request) {
  std::string text;
  const bool isGone = identity_.uninstall(text);
  log_.info(described(request) + " flag=" + std::to_string(isGone) + " end");
  isClosing_ = isClosing_ || isGone;
  const auto held = std::move(requests_.extract(request.id).mapped());
  try {
    held->uninstallResult.returnResults(isGone, text);
  } catch (const sdbus::Error& error) {
    log_.error(described(*held) + " no answer: " + escapedForLog(error.getMessage()));
  }
}

void HelperService::Core::refuse(Request& request, const std::string& reason) {
  log_.refusal(described(request) + " refused: " + reason);
  if (!request.isEvent()) {
    const auto held = std::move(requests_.extract(request.id).mapped());
    held->uninstallResult.returnResults(false, std::string(kRefusedText));
    return;
  }
  const auto& event = request.event;
  answer(request, event.has_value() ? Reply::refused(event->form, event->view) : Reply::refusedWhole());
}

void HelperService::Core::answer(Request& request, const Reply& reply) {
  const auto held = std::move(requests_.extract(request.id).mapped());
  try {
    if (reply.message.isOpen()) {
      held->eventResult.returnResults(reply.flag, reply.code, sdbus::UnixFd(reply.message.get()));
    } else {
      // An answer that lists no failures would tell of success.
      held->eventResult.returnError(sdbus::Error("org.freedesktop.DBus.Error.NoMemory", "no memory"));
    }
  } catch (const sdbus::Error& error) {
    log_.error(described(*held) + " no answer: " + escapedForLog(error.getMessage()));
  }
}

void HelperService::Core::callerLeft(const std::string& sender) {
  std::vector<std::uint64_t> left;
  for (const auto& [id, request] : requests_) {
    if (request->sender == sender) left.push_back(id);
  }
  for (const std::uint64_t id : left) {
    const Request& request = *find(id);
    if (request.stage == Stage::Running) {
      supervisor_.killAfter(id, configuration_.grace, Supervisor::Clock::now());
      continue;
    }
    log_.refusal(described(request) + " refused: caller-left");
    if (request.stage == Stage::Asking) authority_.cancel(id);
    requests_.erase(id);
  }
}

void HelperService::Core::stop() {
  isClosing_ = true;
  std::vector<std::uint64_t> all;
  for (const auto& [id, request] : requests_) all.push_back(id);
  for (const std::uint64_t id : all) {
    Request& request = *find(id);
    if (request.stage == Stage::Running) {
      supervisor_.kill(id);
    } else {
      refuse(request, "closing");
    }
  }
}

bool HelperService::Core::serveBus() {
  try {
    while (connection_->processPendingRequest()) {
    }
    return true;
  } catch (const sdbus::Error& error) {
    log_.error("the bus is gone: " + escapedForLog(error.getMessage()));
    return false;
  }
}

void HelperService::Core::wait(int stopSignal) {
  const sdbus::IConnection::PollData bus = connection_->getEventLoopPollData();
  std::vector<pollfd> descriptors = {{bus.fd, bus.events, 0}, {isClosing_ ? -1 : stopSignal, POLLIN, 0}};
  for (const int descriptor : supervisor_.descriptors()) descriptors.push_back({descriptor, POLLIN, 0});
  int timeout = bus.getPollTimeout();
  if (const auto deadline = supervisor_.deadline()) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(*deadline - Supervisor::Clock::now()).count();
    const int most = static_cast<int>(std::max<std::int64_t>(left, 0));
    timeout = timeout < 0 ? most : std::min(timeout, most);
  }
  // The results of a worker come one by one, a million of them at times: the bus is asked only if it has
  // news.
  int ready = 0;
  do {
    ready = ::poll(descriptors.data(), descriptors.size(), timeout);
    supervisor_.serve(Supervisor::Clock::now());
  } while (ready > 0 && descriptors[0].revents == 0 && descriptors[1].revents == 0 &&
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
  for (bool hasName = true; serveBus();) {
    if (isClosing_ && requests_.empty()) {
      if (!hasName) return true;
      // Calls that were on their way before are answered; later ones start the next helper.
      connection_->releaseName(identity_.service);
      hasName = false;
      continue;
    }
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
