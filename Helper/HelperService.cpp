#include "Helper/HelperService.hpp"

#include <poll.h>
#include <sdbus-c++/sdbus-c++.h>

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "Helper/Authority.hpp"
#include "Helper/BusMethods.hpp"
#include "Helper/BusPolicy.hpp"
#include "Helper/CallList.hpp"
#include "Helper/EventLog.hpp"
#include "Helper/HelperCall.hpp"
#include "Helper/Installation.hpp"
#include "Helper/Reply.hpp"
#include "Helper/Supervisor.hpp"
#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/HelpTool/HelperWireNames.hpp"

namespace sorrel::helper {
namespace {

using Clock = HelperCall::Clock;
using Stage = HelperCall::Stage;

/// Grace period after start-up before the idle time counts: the call that started the helper is about to
/// arrive.
constexpr std::chrono::seconds kStart{2};
/// Messages processed in a row before the workers' results are read.
constexpr int kMostInARow = 64;

}  // namespace

class HelperService::Core {
 public:
  Core(std::unique_ptr<sdbus::IConnection> connection, HelperIdentity identity, Configure configure,
       HelperLog& log)
      : identity_(std::move(identity)),
        names_(identity_.service),
        configure_(std::move(configure)),
        configuration_(&configure_()),
        log_(log),
        connection_(std::move(connection)),
        object_(sdbus::createObject(*connection_, names_.objectPath)),
        authority_(*connection_, identity_.service) {}

  bool run(int stopSignal);

 private:
  struct Caller {
    std::uint32_t uid = kUnknownUser;
    bool isAuthorised = false;  ///< polkit has authorised a call of this connection
  };

  void offer();
  void begin(BeginAnswers&& answers, const std::optional<EventForm>& form, std::uint64_t bytes);
  void runEvent(RunAnswers&& answers, std::uint64_t ticket);
  bool close();
  void admit(std::unique_ptr<HelperCall> call);
  void identified(std::uint64_t id, std::optional<std::uint32_t> uid);
  void decided(std::uint64_t id, bool isAuthorised, const std::string& reason);
  [[nodiscard]] std::size_t roomForReply(const HelperCall& call) const;
  bool hasRoomForReply(HelperCall& call);
  void handOutMemory(HelperCall& call);
  void startWork(HelperCall& call);
  void finished(std::uint64_t id, const Supervisor::Ending& ending);
  void refuse(HelperCall& call, const std::string& reason);
  template <class Answer>
  void answer(const HelperCall& call, const Answer& send);
  void endCalls(const std::vector<std::uint64_t>& ids, const char* reason);
  void dropUnusedTickets();
  void stop();
  bool serveBus();
  bool leave();
  [[nodiscard]] std::string sender() const { return object_->getCurrentlyProcessedMessage()->getSender(); }
  [[nodiscard]] const char* refusalOfAll();
  [[nodiscard]] Clock::time_point idleEnd() const;
  [[nodiscard]] std::optional<Clock::time_point> deadline() const;
  void wait(int stopSignal);

  HelperIdentity identity_;
  const HelperWireNames names_;
  const Configure configure_;
  const HelperConfiguration* configuration_;
  HelperLog& log_;
  std::unique_ptr<sdbus::IConnection> connection_;  // outlives the objects received over it
  CallList calls_;
  std::map<std::string, Caller> callers_;  // by unique name; erased when the connection leaves the bus
  bool isStopping_ = false;                // accepts no more work
  bool isLeaving_ = false;                 // ends when no authorised work is left
  std::size_t repliedBytes_ = 0;  // this much of our memory may still be held by the receivers of replies
  Clock::time_point lastWork_ = Clock::now() + kStart;
  Supervisor supervisor_;
  sdbus::Slot departures_;
  std::unique_ptr<sdbus::IObject> object_;
  Authority authority_;
};

void HelperService::Core::offer() {
  registerMethods(
      *object_, names_,
      {identity_.version, removalAdvice(identity_.service),
       [this](BeginAnswers&& answers, const std::optional<EventForm>& form, std::uint64_t bytes) {
         begin(std::move(answers), form, bytes);
       },
       [this](RunAnswers&& answers, std::uint64_t ticket) { runEvent(std::move(answers), ticket); },
       [this] { endCalls(calls_.from(sender()), HelperRefusal::stopped); }, [this] { return close(); }});
  // Registered before any call can arrive: the bus reports a departure after the last call of the connection.
  departures_ = connection_->addMatch(
      "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
      "member='NameOwnerChanged',arg2=''",
      [this](sdbus::Message& signal) {
        std::string name;
        signal >> name;
        callers_.erase(name);
        endCalls(calls_.from(name), HelperRefusal::callerLeft);
      });
  connection_->requestName(identity_.service);
}

void HelperService::Core::begin(BeginAnswers&& answers, const std::optional<EventForm>& form,
                                std::uint64_t bytes) {
  if (!form.has_value() || bytes == 0 || bytes > HelperLimits::bytes) {
    return answers.refuse(HelperRefusal::unsound);
  }
  auto call = std::make_unique<HelperCall>();
  call->form = *form;
  call->bytes = bytes;
  call->refuse = std::move(answers.refuse);
  call->begun = std::move(answers.begun);
  admit(std::move(call));
}

/// The reason why no call is accepted any more; null while calls are.
const char* HelperService::Core::refusalOfAll() {
  const bool isFree = !isLeaving_ && !calls_.hasAuthorisedWork();
  if (isFree && identity_.isReplaced && identity_.isReplaced()) {
    log_.info("another program was installed");
    isLeaving_ = true;
  }
  if (isStopping_) return HelperRefusal::stopped;
  return isLeaving_ ? HelperRefusal::closing : nullptr;
}

void HelperService::Core::admit(std::unique_ptr<HelperCall> call) {
  call->sender = sender();
  const auto known = callers_.find(call->sender);
  const char* reason = refusalOfAll();
  if (reason == nullptr && known == callers_.end() && !calls_.canIdentify(call->sender)) {
    reason = HelperRefusal::busy;
  }
  HelperCall& added = calls_.add(std::move(call));
  if (reason != nullptr) return refuse(added, reason);
  if (known != callers_.end()) return identified(added.id, known->second.uid);
  authority_.userOf(added.sender, [this, id = added.id](std::optional<std::uint32_t> uid) {
    if (const HelperCall* asked = calls_.find(id); asked != nullptr && uid.has_value()) {
      callers_[asked->sender].uid = *uid;
    }
    identified(id, uid);
  });
}

void HelperService::Core::identified(std::uint64_t id, std::optional<std::uint32_t> uid) {
  HelperCall* const call = calls_.find(id);
  if (call == nullptr) return;
  if (!uid.has_value()) return refuse(*call, HelperRefusal::unknownCaller);
  call->uid = *uid;
  if (const char* reason = refusalOfAll()) return refuse(*call, reason);
  if (calls_.hasCallOf(*uid)) return refuse(*call, HelperRefusal::tooMany);
  if (!calls_.mayAsk()) return refuse(*call, HelperRefusal::busy);
  call->stage = Stage::Asking;
  authority_.check(
      call->sender, call->action(), call->paths(), id,
      [this, id](bool isAuthorised, const std::string& reason) { decided(id, isAuthorised, reason); });
}

void HelperService::Core::decided(std::uint64_t id, bool isAuthorised, const std::string& reason) {
  HelperCall* const call = calls_.find(id);
  if (call == nullptr) return;
  if (!isAuthorised) return refuse(*call, reason);
  if (calls_.isFull()) return refuse(*call, HelperRefusal::busy);
  lastWork_ = Clock::now();
  callers_[call->sender] = {call->uid, true};
  handOutMemory(*call);
}

/// The bytes available for the reply to this call, besides the replies that callers keep and those still to
/// come.
std::size_t HelperService::Core::roomForReply(const HelperCall& call) const {
  const std::size_t others = repliedBytes_ + calls_.mostReplyBytesBeside(call);
  const std::size_t all = HelperLimits::bytesOf(HelperMessage::Kind::Reply);
  return all - std::min(all, others);
}

/// Refuses the call if there is no space for its reply. Replies that callers keep count against this process;
/// the next helper begins without any.
bool HelperService::Core::hasRoomForReply(HelperCall& call) {
  if (roomForReply(call) >= call.mostReplyBytes()) return true;
  isLeaving_ = isLeaving_ || calls_.mostReplyBytesBeside(call) == 0;
  refuse(call, isLeaving_ ? HelperRefusal::closing : HelperRefusal::busy);
  return false;
}

void HelperService::Core::handOutMemory(HelperCall& call) {
  if (!hasRoomForReply(call)) return;
  call.file = SealedMemory::forFilling(call.bytes);
  if (!call.file.isOpen()) return refuse(call, HelperRefusal::noMemory);
  call.stage = Stage::Filling;
  call.fillDeadline = Clock::now() + kFill;
  call.refuse = nullptr;
  std::string fault = "no memory";
  try {
    if (call.begun(call.id, call.file)) return;
  } catch (const sdbus::Error& error) {
    fault = escapedForLog(error.getMessage());
  }
  log_.error(call.described() + " no answer: " + fault);
  calls_.take(call.id);
}

void HelperService::Core::runEvent(RunAnswers&& answers, std::uint64_t ticket) {
  HelperCall* const call = calls_.find(ticket);
  if (call == nullptr || call->sender != sender() || call->stage != Stage::Filling) {
    return answers.refuse(HelperRefusal::noTicket);
  }
  call->refuse = std::move(answers.refuse);
  call->finished = std::move(answers.finished);
  if (!call->read()) return refuse(*call, HelperRefusal::unsound);
  if (hasRoomForReply(*call)) startWork(*call);
}

void HelperService::Core::startWork(HelperCall& call) {
  configuration_ = &configure_();
  const EventJob job{call.form, call.uid, *call.view, *configuration_};
  const bool isStarted = supervisor_.start(
      call.id, job, [this, id = call.id](const Supervisor::Ending& ending) { finished(id, ending); });
  if (!isStarted) return refuse(call, HelperRefusal::noProcess);
  call.stage = Stage::Running;
  log_.info(call.described() + " paths=" + std::to_string(call.paths()) + " start");
}

void HelperService::Core::finished(std::uint64_t id, const Supervisor::Ending& ending) {
  HelperCall* const call = calls_.find(id);
  if (call == nullptr) return;
  const EventOutcome told =
      ending.outcome.value_or(EventOutcome{false, static_cast<std::int32_t>(call->form.failure())});
  logEnding(log_, *call, ending, told, configuration_->logsPaths);
  const Reply reply = Reply::of(call->form, *call->view, ending.results, told, roomForReply(*call));
  repliedBytes_ += reply.bytes;
  lastWork_ = Clock::now();
  answer(*call, [&](const HelperCall& ended) { ended.finished(reply); });
}

bool HelperService::Core::close() {
  const auto caller = callers_.find(sender());
  const bool isHonoured =
      caller != callers_.end() && caller->second.isAuthorised && !calls_.hasWork() && !isStopping_;
  if (!isHonoured) return false;
  log_.info("closed by uid=" + std::to_string(caller->second.uid));
  isLeaving_ = true;
  return true;
}

void HelperService::Core::refuse(HelperCall& call, const std::string& reason) {
  log_.limited(call.uid, [&] { return call.described() + " refused: " + reason; });
  answer(call, [&](const HelperCall& ended) {
    if (ended.refuse) ended.refuse(reason);
  });
}

/// The call is removed from the list before its caller can make another.
template <class Answer>
void HelperService::Core::answer(const HelperCall& call, const Answer& send) {
  const auto ended = calls_.take(call.id);
  try {
    send(*ended);
  } catch (const sdbus::Error& error) {
    log_.error(ended->described() + " no answer: " + escapedForLog(error.getMessage()));
  }
}

void HelperService::Core::endCalls(const std::vector<std::uint64_t>& ids, const char* reason) {
  for (const std::uint64_t id : ids) {
    HelperCall& call = *calls_.find(id);
    if (call.stage == Stage::Running) {
      supervisor_.kill(id);  // finished() answers
      continue;
    }
    if (call.stage == Stage::Asking) authority_.cancel(id);
    refuse(call, reason);
  }
}

void HelperService::Core::dropUnusedTickets() {
  const Clock::time_point now = Clock::now();
  for (const std::uint64_t id : calls_.all()) {
    HelperCall& call = *calls_.find(id);
    if (call.stage == Stage::Filling && call.fillDeadline <= now) refuse(call, "unused-ticket");
  }
}

void HelperService::Core::stop() {
  isLeaving_ = isStopping_ = true;
  endCalls(calls_.all(), HelperRefusal::stopped);
}

/// False once the bus is gone. A flood of messages does not delay the workers' results.
bool HelperService::Core::serveBus() {
  try {
    const auto isDone = [this] { return isLeaving_ && !calls_.hasAuthorisedWork(); };
    for (int i = 0; i < kMostInARow && !isDone() && connection_->processPendingRequest(); ++i) {
    }
    return true;
  } catch (const sdbus::Error& error) {
    log_.error("the bus: " + escapedForLog(error.getMessage()));
    return isShortage(error);
  }
}

/// True at the end of the service. Releases the name first, so that later calls start the next helper, and
/// answers the calls that were delivered before that.
bool HelperService::Core::leave() {
  if (calls_.hasAuthorisedWork()) return false;
  if (!isLeaving_ && Clock::now() >= idleEnd()) {
    log_.info("nothing to do");
    isLeaving_ = true;
  }
  if (!isLeaving_) return false;
  endCalls(calls_.all(), isStopping_ ? HelperRefusal::stopped : HelperRefusal::closing);
  try {
    connection_->releaseName(identity_.service);
    while (connection_->processPendingRequest()) {
    }
  } catch (const sdbus::Error& error) {
    log_.error("the name is kept: " + escapedForLog(error.getMessage()));
  }
  return true;
}

/// The time when the helper ends without authorised work. Pending questions delay it, but not for ever: the
/// next helper asks them again.
Clock::time_point HelperService::Core::idleEnd() const {
  return lastWork_ + configuration_->idle + (calls_.hasWork() ? identity_.question : std::chrono::seconds(0));
}

/// The next time at which work is due without an incoming event.
std::optional<Clock::time_point> HelperService::Core::deadline() const {
  if (const auto ticket = calls_.firstDeadline()) return ticket;
  return calls_.hasAuthorisedWork() ? std::nullopt : std::optional(idleEnd());
}

void HelperService::Core::wait(int stopSignal) {
  const sdbus::IConnection::PollData bus = connection_->getEventLoopPollData();
  std::array<pollfd, 2> others = {{{bus.fd, bus.events, 0}, {isStopping_ ? -1 : stopSignal, POLLIN, 0}}};
  int timeout = bus.getPollTimeout();
  if (const auto until = deadline()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*until - Clock::now()).count();
    const int most = static_cast<int>(std::max<std::int64_t>(left, 0));
    timeout = timeout < 0 ? most : std::min(timeout, most);
  }
  supervisor_.wait(others, timeout);
  dropUnusedTickets();
  if (others[1].revents != 0) stop();
}

bool HelperService::Core::run(int stopSignal) {
  try {
    offer();
  } catch (const sdbus::Error& error) {
    log_.error("no name on the bus: " + escapedForLog(error.getMessage()));
    return false;
  }
  if (const auto probe = std::exchange(identity_.probe, nullptr); probe && !isGuarded(*probe, names_, log_)) {
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
                             Configure configure, HelperLog& log)
    : core_(std::make_unique<Core>(std::move(connection), std::move(identity), std::move(configure), log)) {}

HelperService::~HelperService() = default;

bool HelperService::run(int stopSignal) { return core_->run(stopSignal); }

}  // namespace sorrel::helper
