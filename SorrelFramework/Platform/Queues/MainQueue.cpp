#include "SorrelFramework/Platform/Queues/MainQueue.hpp"

#include <glib.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <deque>
#include <mutex>
#include <utility>
#include <vector>

namespace sorrel {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// Longest time per dispatch, so that a burst of tasks leaves the application time to draw.
constexpr milliseconds kBudget{8};
/// How often runUntil() tests its condition when the loop gets no events.
constexpr guint kConditionTestMilliseconds = 10;

struct TaskList {
  std::mutex mutex;
  std::deque<std::function<void()>> tasks;

  bool isEmpty() {
    const std::lock_guard lock(mutex);
    return tasks.empty();
  }
  std::size_t count() {
    const std::lock_guard lock(mutex);
    return tasks.size();
  }
  std::function<void()> takeFirst() {
    const std::lock_guard lock(mutex);
    if (tasks.empty()) return {};
    std::function<void()> task = std::move(tasks.front());
    tasks.pop_front();
    return task;
  }
};

TaskList& taskList() {
  static TaskList& list = *new TaskList;  // other threads may post while the process ends
  return list;
}

gboolean prepareTasks(GSource*, gint* timeout) {
  *timeout = -1;
  return taskList().isEmpty() ? FALSE : TRUE;
}

gboolean checkTasks(GSource*) { return taskList().isEmpty() ? FALSE : TRUE; }

/// Runs the tasks present at the start, one by one: a task that runs the loop itself finds the rest in order.
gboolean dispatchTasks(GSource*, GSourceFunc, gpointer) {
  const auto end = steady_clock::now() + kBudget;
  for (std::size_t left = taskList().count(); left > 0; --left) {
    const std::function<void()> task = taskList().takeFirst();
    if (!task) break;
    task();
    if (steady_clock::now() >= end) break;
  }
  return G_SOURCE_CONTINUE;
}

GSourceFuncs taskSourceFunctions = {prepareTasks, checkTasks, dispatchTasks, nullptr, nullptr, nullptr};

void attachTaskSource() {
  GSource* source = g_source_new(&taskSourceFunctions, sizeof(GSource));
  g_source_set_static_name(source, "sorrel-main-queue");
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  g_source_set_can_recurse(source, TRUE);
  g_source_attach(source, g_main_context_default());
  g_source_unref(source);
}

/// End flags of the running loops, the innermost last. Only on the loop's thread.
std::vector<bool*>& runningLoops() {
  static auto& loops = *new std::vector<bool*>;
  return loops;
}

gboolean keepGoing(gpointer) { return G_SOURCE_CONTINUE; }

/// Wakes the loop periodically, for a condition that changes without an event.
class Waker {
 public:
  Waker() : source_(g_timeout_source_new(kConditionTestMilliseconds)) {
    g_source_set_callback(source_, keepGoing, nullptr, nullptr);
    g_source_attach(source_, g_main_context_default());
  }
  ~Waker() {
    g_source_destroy(source_);
    g_source_unref(source_);
  }
  Waker(const Waker&) = delete;
  Waker& operator=(const Waker&) = delete;

 private:
  GSource* source_;
};

}  // namespace

void MainQueue::post(std::function<void()> task) {
  if (!task) return;
  static std::once_flag attached;
  std::call_once(attached, attachTaskSource);
  {
    const std::lock_guard lock(taskList().mutex);
    taskList().tasks.push_back(std::move(task));
  }
  g_main_context_wakeup(g_main_context_default());
}

bool MainQueue::isCurrent() {
  GMainContext* context = g_main_context_default();
  if (g_main_context_is_owner(context) != FALSE) return true;
  if (::gettid() != ::getpid() || g_main_context_acquire(context) == FALSE) return false;
  g_main_context_release(context);
  return true;
}

void MainQueue::run() {
  bool ended = false;
  runningLoops().push_back(&ended);
  while (!ended) g_main_context_iteration(g_main_context_default(), TRUE);
  runningLoops().pop_back();
}

void MainQueue::quit() {
  post([] {
    if (!runningLoops().empty()) *runningLoops().back() = true;
  });
}

bool MainQueue::runUntil(const std::function<bool()>& condition, milliseconds limit) {
  const auto deadline = steady_clock::now() + limit;
  const Waker waker;
  while (!condition()) {
    const bool isOver = steady_clock::now() >= deadline;
    // Ready sources run even if no time is left, so that a limit of zero polls.
    g_main_context_iteration(g_main_context_default(), isOver ? FALSE : TRUE);
    if (isOver) return condition();
  }
  return true;
}

struct MainTimer::State {
  std::function<void()> tick;
  std::atomic<bool> alive{true};
  GSource* source = nullptr;

  static gboolean fire(gpointer data) {
    const std::shared_ptr<State> self = *static_cast<std::shared_ptr<State>*>(data);
    if (self->alive.load()) self->tick();
    return self->alive.load() ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
  }
  static void release(gpointer data) { delete static_cast<std::shared_ptr<State>*>(data); }
};

MainTimer::MainTimer(milliseconds interval, std::function<void()> tick) : state_(std::make_shared<State>()) {
  state_->tick = std::move(tick);
  state_->source = g_timeout_source_new(static_cast<guint>(interval.count()));
  g_source_set_static_name(state_->source, "sorrel-timer");
  g_source_set_callback(state_->source, &State::fire, new std::shared_ptr<State>(state_), &State::release);
  g_source_attach(state_->source, g_main_context_default());
}

MainTimer::~MainTimer() {
  invalidate();
  g_source_unref(state_->source);
}

void MainTimer::invalidate() {
  if (state_->alive.exchange(false)) g_source_destroy(state_->source);
}

}  // namespace sorrel
