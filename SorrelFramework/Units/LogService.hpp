#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "SorrelFramework/Platform/Queues/WeftSerialQueue.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {

/// The framework's own log: a UTF-8 text that grows at its end, one entry after another. All writing happens
/// on a queue of its own, so that no caller waits for the disk. Write errors are not reported: the log never
/// stops the program. Entries of one thread keep their order. All calls are safe on any thread.
class LogService {
 public:
  enum class LogLevel { Debug, Info };
  /// "Debug", "Info".
  [[nodiscard]] static std::string_view rawValue(LogLevel level);

  /// The log of this process, made on first use: ID/IDFrameworkLog.txt below the user's application support
  /// folder, where ID is the identifier of the main bundle. A main bundle without one is a fatal stop. When
  /// the process ends by exit(), pending entries are still written. That wait ends after ten seconds, or
  /// after one second in which no entry was written.
  static LogService& shard();

  /// A log for the application ID `bundleIdentifier` below `supportFolder`. Creates the folder and the empty
  /// file if they are missing; they are never created later.
  LogService(const std::string& supportFolder, const std::string& bundleIdentifier);
  /// Writes the pending entries.
  ~LogService();
  LogService(const LogService&) = delete;
  LogService& operator=(const LogService&) = delete;

  /// Appends "<", the time of writing, ":Debug>:" or ":Info>:", `txt` as it is, and a line feed. A text that
  /// is not UTF-8 is dropped.
  void log(LogLevel level, std::string txt);
  /// The same; the text is a line feed, key, ":", value and a line feed for each pair.
  void logDict(LogLevel level, const std::map<std::string, std::string>& txt);

  /// The current time in the local time zone; `dateFormat` is a pattern of Unicode Technical Standard 35.
  [[nodiscard]] std::string dateToString(std::string_view dateFormat = "yyyy-MM-dd HH:mm:ss") const;

  /// Returns when all pending entries are written. Must not be called on the log's own queue.
  void flushForTesting();
  /// Ends shard(): the next call makes a new one for the then current Host. Must not be called while a thread
  /// logs.
  static void resetForTesting();

  URL logPath;
  std::shared_ptr<WeftSerialQueue> serialQueue;
};

}  // namespace sorrel
