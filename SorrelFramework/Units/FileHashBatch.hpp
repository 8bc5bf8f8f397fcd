#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "SorrelFramework/Platform/Digest/MD5Kernels.hpp"
#include "SorrelFramework/Platform/Files/SharedReadStream.hpp"

namespace sorrel {

/// StreamFileHashUnit::hashFile for many files, several times as fast: each thread reads up to 16 of them in
/// turn, a chunk of 16384 bytes of each, and digests these chunks side by side (AVX-512 or AVX2). The results
/// are those of hashFile on each path. A stop is checked before each chunk of any file; a file without a
/// digest by then gets none, even if scanState is reset.
///
///     auto batch = std::make_shared<FileHashBatch>(paths, workers);
///     for each worker: GlobalQueue::submit([batch] { batch->run(); ...count the worker on the queue... });
///     after the last of them: batch->hashes()
class FileHashBatch {
 public:
  /// `workers` is the number of threads that will call run(): each takes its share of a few files, so that no
  /// thread is idle. Files are begun in the order of the paths; with the longest first, all threads stay busy
  /// to the end. `kernel` must be supported by this processor. `isStopped` stops this batch only, on any
  /// thread that runs it; scanState, which a new scan resets, stops all batches.
  explicit FileHashBatch(std::vector<std::string> paths, std::size_t workers = 1,
                         const MD5Kernel& kernel = bestMD5Kernel(), std::function<bool()> isStopped = {});

  /// Hashes files until every one of the batch is begun and those begun here are finished. Several threads
  /// may run at once, they take the files from one list. It holds up to 16 files open and 16 KiB for each,
  /// whatever their lengths; short of descriptors, it makes do with fewer, and waits for a file of another
  /// thread to be closed if it has none.
  void run();

  [[nodiscard]] const std::vector<std::string>& paths() const { return paths_; }
  /// One for each path, in their order: 32 lower-case hexadecimal digits or nothing. To be read after every
  /// run() has returned.
  [[nodiscard]] const std::vector<std::optional<std::string>>& hashes() const { return hashes_; }
  /// One for each path: the errno of a file that could not be opened or read to its end, or 0; EMFILE or
  /// ENFILE if no thread had a file open that it could have waited for. To be read when every run() is over.
  [[nodiscard]] const std::vector<int>& errors() const { return errors_; }

 private:
  class Worker;

  [[nodiscard]] std::optional<std::size_t> next();
  /// Sticky: once stopped, a batch stays stopped.
  [[nodiscard]] bool isStopped();
  void runOneByOne();
  /// Sets the file's error.
  [[nodiscard]] SharedReadStream open(std::size_t index, SharedReadStream::Lack lack);

  std::vector<std::string> paths_;
  std::vector<std::optional<std::string>> hashes_;
  std::vector<int> errors_;
  const MD5Kernel& kernel_;
  std::function<bool()> stopTest_;
  std::size_t share_;  // the most files that one run() holds open
  std::atomic<std::size_t> begun_{0};
  std::atomic<bool> isStopped_{false};
};

}  // namespace sorrel
