#include "Tests/Helper/ScriptedPolkit.hpp"

#include <sdbus-c++/sdbus-c++.h>

#include <condition_variable>
#include <mutex>
#include <utility>

#include "Tests/Support/MainLoop.hpp"

namespace sorrel::test {

struct ScriptedPolkit::State {
  using Details = std::map<std::string, std::string>;
  using Check = sdbus::Struct<bool, bool, Details>;
  using Subject = sdbus::Struct<std::string, std::map<std::string, sdbus::Variant>>;
  using Result = sdbus::Result<Check>;

  void answer(const Result& result, bool isAuthorised) {
    const Details dismissed = {{"polkit.dismissed", "true"}};
    result.returnResults(Check(isAuthorised, false, isAuthorised ? Details() : dismissed));
  }
  static bool couldAuthorise(Mode mode, std::uint32_t flags) {
    return mode == Mode::NoAgent || (mode == Mode::WrongPassword && flags == 0);
  }
  void ask(Result&& result, const Question& question) {
    const std::lock_guard lock(mutex);
    questions.push_back(question);
    arrived.notify_all();
    if (mode == Mode::Wait) {
      waiting.push_back(std::move(result));
    } else if (mode == Mode::Error) {
      result.returnError(sdbus::Error("org.freedesktop.PolicyKit1.Error.Failed", "no session"));
    } else if (mode == Mode::WrongPassword || mode == Mode::NoAgent || mode == Mode::NeverAsked) {
      result.returnResults(Check(false, couldAuthorise(mode, question.flags), Details()));
    } else if (mode == Mode::LateYes) {
      result.returnResults(Check(question.flags == 0, false, Details()));
    } else {
      const bool isFirst = question.subjectName == questions.front().subjectName;
      answer(result, mode == Mode::Yes || (mode == Mode::YesToFirst && isFirst));
    }
  }

  std::unique_ptr<sdbus::IConnection> connection;  // outlives the objects received over it
  Mode mode = Mode::Yes;
  mutable std::mutex mutex;
  mutable std::condition_variable arrived;
  std::vector<Question> questions;
  std::vector<std::string> cancellations;
  std::vector<Result> waiting;
  std::unique_ptr<sdbus::IObject> object;
};

ScriptedPolkit::ScriptedPolkit(const std::string& address, Mode mode) : state_(std::make_unique<State>()) {
  constexpr const char* kInterface = "org.freedesktop.PolicyKit1.Authority";
  State& state = *state_;
  state.mode = mode;
  state.connection = sdbus::createSessionBusConnectionWithAddress(address);
  state.object = sdbus::createObject(*state.connection, "/org/freedesktop/PolicyKit1/Authority");
  state.object->registerMethod("CheckAuthorization")
      .onInterface(kInterface)
      .implementedAs([&state](State::Result&& result, const State::Subject& subject,
                              const std::string& action, const State::Details& details, std::uint32_t flags,
                              const std::string&) {
        const auto& properties = subject.get<1>();
        const auto name = properties.find("name");
        state.ask(std::move(result),
                  {subject.get<0>(), name == properties.end() ? "" : name->second.get<std::string>(), action,
                   details, flags, state.object->getCurrentlyProcessedMessage()->getSender()});
      });
  state.object->registerMethod("CancelCheckAuthorization")
      .onInterface(kInterface)
      .implementedAs([&state](const std::string& cancellation) {
        const std::lock_guard lock(state.mutex);
        state.cancellations.push_back(cancellation);
        state.arrived.notify_all();
      });
  state.object->finishRegistration();
  state.connection->requestName(kPolkitName);
  state.connection->enterEventLoopAsync();
}

ScriptedPolkit::~ScriptedPolkit() { state_->connection->leaveEventLoop(); }

std::vector<ScriptedPolkit::Question> ScriptedPolkit::questions() const {
  const std::lock_guard lock(state_->mutex);
  return state_->questions;
}

std::vector<std::string> ScriptedPolkit::cancellations() const {
  const std::lock_guard lock(state_->mutex);
  return state_->cancellations;
}

bool ScriptedPolkit::waitForQuestions(std::size_t count) const {
  std::unique_lock lock(state_->mutex);
  return state_->arrived.wait_for(lock, kPatience, [&] { return state_->questions.size() >= count; });
}

void ScriptedPolkit::setMode(Mode mode) {
  const std::lock_guard lock(state_->mutex);
  state_->mode = mode;
}

void ScriptedPolkit::answerAll(bool isAuthorised) {
  std::vector<State::Result> waiting;
  {
    const std::lock_guard lock(state_->mutex);
    waiting.swap(state_->waiting);
  }
  // Without the lock: an answer takes that of the connection, which is held while requests arrive.
  for (const State::Result& result : waiting) state_->answer(result, isAuthorised);
}

}  // namespace sorrel::test
