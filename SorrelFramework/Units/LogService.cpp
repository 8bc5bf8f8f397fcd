#include "SorrelFramework/Units/LogService.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <mutex>
#include <system_error>
#include <utility>

#include "SorrelFramework/Platform/Base/Clock.hpp"
#include "SorrelFramework/Platform/Base/Date.hpp"
#include "SorrelFramework/Platform/Base/Fatal.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Text/DateText.hpp"
#include "SorrelFramework/Platform/Text/Text.hpp"

namespace sorrel {
namespace {

constexpr std::string_view kFileName = "FrameworkLog.txt";
constexpr std::string_view kDateFormat = "yyyy-MM-dd HH:mm:ss";
constexpr const char* kLocale = "zh_CN";
// Waiting at exit: the step between two checks, the maximum number of steps without a written entry, and the
// maximum in total.
constexpr std::uint64_t kExitStepMicroseconds = 1'000;
constexpr int kExitStepsWithoutEntry = 1'000;
constexpr int kExitStepsInAll = 10'000;
constexpr mode_t kFileMode = 0644;

/// Entries that were written or dropped, over all logs.
std::atomic<std::uint64_t> finishedEntries{0};

std::string now(std::string_view dateFormat) { return formattedDate(Date::now(), dateFormat, kLocale); }

void createFileOnce(const std::string& path) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kFileMode);
  if (fd >= 0) ::close(fd);
}

/// One write call, so that entries of several processes with the same log do not mix.
void append(const std::string& path, std::string_view entry) {
  // Nonblocking, because a FIFO at the log's path must not block the queue.
  const int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return;
  struct stat status {};
  if (::fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
    while (::write(fd, entry.data(), entry.size()) < 0 && errno == EINTR) {
    }
  }
  ::close(fd);
}

void writeEntry(const std::string& path, LogService::LogLevel level, std::string_view text) {
  if (!isValidUTF8(text)) return;
  std::string entry = "<" + now(kDateFormat);
  entry.append(":").append(LogService::rawValue(level)).append(">:").append(text) += '\n';
  append(path, entry);
}

/// Ready once everything that was submitted before has run, or if the queue accepts no tasks any more.
std::future<void> everythingBefore(WeftSerialQueue& queue) {
  const auto reached = std::make_shared<std::promise<void>>();
  std::future<void> done = reached->get_future();
  queue.submit([reached] { reached->set_value(); }, [reached](WeftRunError) { reached->set_value(); });
  return done;
}

bool isReady(const std::future<void>& done) {
  return done.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

/// Waits as long as entries are still being written, so that a busy machine loses none, but not for a hanging
/// disk.
void flushForExit(WeftSerialQueue& queue) {
  if (queue.isCurrent()) return;
  const std::future<void> done = everythingBefore(queue);
  std::uint64_t before = finishedEntries;
  int idle = 0;
  for (int step = 0; step < kExitStepsInAll && idle < kExitStepsWithoutEntry && !isReady(done); ++step) {
    waitMicroseconds(kExitStepMicroseconds);
    const std::uint64_t finished = finishedEntries;
    idle = finished == before ? idle + 1 : 0;
    before = finished;
  }
}

struct Shared {
  std::mutex mutex;
  std::atomic<LogService*> service{nullptr};
  std::atomic<pid_t> process{0};  // the process that made the service
};

Shared& shared() {
  static Shared& instance = *new Shared;  // other threads may log while the process ends
  return instance;
}

void flushAtExit() {
  LogService* service = shared().service.load();
  // A forked child has the queue, but not its thread.
  if (service != nullptr && shared().process == ::getpid()) flushForExit(*service->serialQueue);
}

LogService* makeShared() {
  const Host& host = Host::current();
  const std::string& identifier = host.mainBundle().identifier;
  if (identifier.empty()) fatalStop(kUnexpectedNil, "The main bundle has no identifier, which names the log");
  static std::once_flag registered;
  std::call_once(registered, [] { std::atexit(flushAtExit); });
  shared().process = ::getpid();
  return new LogService(host.applicationSupportFolder(), identifier);
}

}  // namespace

std::string_view LogService::rawValue(LogLevel level) { return level == LogLevel::Debug ? "Debug" : "Info"; }

LogService& LogService::shard() {
  if (LogService* service = shared().service.load()) return *service;
  const std::lock_guard lock(shared().mutex);
  if (shared().service.load() == nullptr) shared().service.store(makeShared());
  return *shared().service.load();
}

void LogService::resetForTesting() {
  const std::unique_ptr<LogService> old(shared().service.exchange(nullptr));
}

LogService::LogService(const std::string& supportFolder, const std::string& bundleIdentifier)
    : serialQueue(std::make_shared<WeftSerialQueue>(WeftQOS::Default)) {
  const std::string folder = appendingPathComponent(supportFolder, bundleIdentifier);
  const std::string path = appendingPathComponent(folder, bundleIdentifier + std::string(kFileName));
  std::error_code ignored;
  std::filesystem::create_directories(folder, ignored);
  createFileOnce(path);
  logPath = URL::fileURL(path, false);
}

LogService::~LogService() = default;

void LogService::log(LogLevel level, std::string txt) {
  submitWithRetry(serialQueue, [path = logPath.path(), level, text = std::move(txt)] {
    writeEntry(path, level, text);
    ++finishedEntries;
  });
}

void LogService::logDict(LogLevel level, const std::map<std::string, std::string>& txt) {
  std::string text;
  for (const auto& [key, value] : txt) text.append("\n").append(key).append(":").append(value).append("\n");
  log(level, std::move(text));
}

std::string LogService::dateToString(std::string_view dateFormat) const { return now(dateFormat); }

void LogService::flushForTesting() { everythingBefore(*serialQueue).wait(); }

}  // namespace sorrel
