// Sizing and scanning of a large folder, against a bare loop of system calls and against du(1) and gdu(1).
// usage: WalkBench TREE [ROUNDS [VARIANT]]; scripts/bench makes the tree. With a part of a variant's name
// only that one runs, for a profiler.

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Benchmarks/BareWalk.hpp"
#include "Benchmarks/SideBySide.hpp"
#include "SorrelFramework/Model/ModuleInfo.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Queues/MainQueue.hpp"
#include "SorrelFramework/Scan/MasterScan/SystemScanService.hpp"

namespace {

using sorrel::CategoryInfomationKind;
using sorrel::CategoryInformation;
using sorrel::FeatureInformation;
using sorrel::Integer;
using sorrel::Ref;
using namespace sorrel::bench;

std::string tree;
std::size_t folderCount = 0;
std::size_t entryCount = 0;

double bareLoop() {
  BareWalk walk;
  const double sum = walk.run(tree);
  folderCount = walk.folders;
  entryCount = walk.entries;
  return sum;
}

double output(const std::string& command) {
  std::string text;
  if (FILE* pipe = ::popen(command.c_str(), "r")) {
    char piece[4096];
    for (std::size_t got; (got = std::fread(piece, 1, sizeof piece, pipe)) > 0;) text.append(piece, got);
    ::pclose(pipe);
  }
  return std::atof(text.c_str());
}

/// Bytes of the folders' own entries, which du counts too.
double foldersOwnBytes() {
  return output("find '" + tree + "' -type d -printf '%s\\n' | awk '{s+=$1} END {printf \"%.0f\", s}'");
}
double diskUsage() { return output("du -sb '" + tree + "'"); }
double gdu() { return output("gdu -npa '" + tree + "' > /dev/null; echo 0"); }

double calculateSize() {
  return static_cast<double>(sorrel::SuperScanService::calculateSize(sorrel::URL::fileURL(tree, true),
                                                                     rawValue(sorrel::FilesKind::Folder)));
}

Ref<FeatureInformation> featureOver(CategoryInfomationKind kind) {
  const auto module = sorrel::makeRef<sorrel::ModuleInformation>(
      Integer{1}, "Module", "", sorrel::Image(), "", "", sorrel::Children<FeatureInformation>());
  auto feature =
      sorrel::makeRef<FeatureInformation>(Integer{1}, Integer{0}, sorrel::Image(), "Feature", "",
                                          sorrel::Children<CategoryInformation>(), module, std::any());
  module->featureInfo.push_back(feature);
  feature->categoryInfo.push_back(sorrel::makeRef<CategoryInformation>(
      Integer{0}, Integer{1}, "Category", sorrel::Image(), std::int64_t{0}, "", rawValue(kind),
      std::vector<sorrel::URL>{sorrel::URL::fileURL(tree, true)}, sorrel::Children<sorrel::FileInformation>(),
      feature, std::any(), Integer{0}, false));
  return feature;
}

struct ScanOutcome {
  double bytesOfTopItems = 0;
  std::size_t records = 0;
  std::size_t progress = 0;
  double bytesPerRecord = 0;
  double stopSeconds = 0;
  double seconds = 0;  // until done has come and every item was reported
};

double residentBytes() {
  long total = 0;
  long resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return static_cast<double>(resident) * static_cast<double>(::sysconf(_SC_PAGESIZE));
}

/// A whole scan as an application runs it: main loop, callbacks and records included.
class WholeScan {
 public:
  /// With `stopAt`, it is stopped after that many items.
  explicit WholeScan(CategoryInfomationKind kind, std::size_t stopAt = 0)
      : feature_(featureOver(kind)), stopAt_(stopAt) {}

  ScanOutcome run() {
    const double before = residentBytes();
    const Clock::time_point started = Clock::now();
    start();
    waitForEverything();
    outcome_.seconds = std::chrono::duration<double>(Clock::now() - started).count();
    outcome_.stopSeconds = std::chrono::duration<double>(finished_ - stopped_).count();
    describeRecords(before);
    return outcome_;
  }

 private:
  using Clock = std::chrono::steady_clock;

  void start() {
    sorrel::SystemScanService::scanSystemJunk(
        *feature_, [this](const std::string& /*path*/, std::int64_t /*size*/) { countItem(); },
        [](float /*share*/) {}, [](Integer /*index*/, std::int64_t /*size*/) {},
        [this](sorrel::CategoryResults found) {
          results_ = std::move(found);
          finished_ = Clock::now();
          isDone_ = true;
          sorrel::MainQueue::post([] {});
        },
        queue_);
  }

  void countItem() {
    if (++outcome_.progress != stopAt_) return;
    stopped_ = Clock::now();
    sorrel::SuperScanService::stopScan(*feature_);
  }

  void waitForEverything() {
    sorrel::MainQueue::runUntil([this] { return isDone_.load(); }, std::chrono::minutes(2));
    // The scan's last blocks of progress were posted before its end was reported: one round of the queue
    // delivers them.
    bool isDelivered = false;
    sorrel::MainQueue::post([&] { isDelivered = true; });
    sorrel::MainQueue::runUntil([&] { return isDelivered; }, std::chrono::minutes(2));
  }

  void describeRecords(double residentBefore) {
    const auto& records = results_.at(0).first;
    outcome_.records = records.size();
    outcome_.bytesPerRecord = (residentBytes() - residentBefore) / static_cast<double>(records.size());
    const std::string top = sorrel::URL::fileURL(tree, true).absoluteString();
    for (const auto& record : records) {
      const std::string_view below = record->url.relativeText().substr(top.size());
      if (below.find('/') >= below.size() - 1) outcome_.bytesOfTopItems += static_cast<double>(record->size);
    }
  }

  sorrel::Ref<sorrel::FeatureInformation> feature_;
  std::shared_ptr<sorrel::WeftSerialQueue> queue_ =
      std::make_shared<sorrel::WeftSerialQueue>(sorrel::WeftQOS::Default);
  std::size_t stopAt_;
  ScanOutcome outcome_;
  std::atomic<bool> isDone_{false};
  Clock::time_point stopped_;
  Clock::time_point finished_;
  sorrel::CategoryResults results_;
};

Outcome timed(CategoryInfomationKind kind) {
  const ScanOutcome outcome = WholeScan(kind).run();
  return {outcome.bytesOfTopItems, outcome.seconds};
}

std::vector<Variant> allVariants() {
  std::vector<Variant> all;
  all.push_back({"bare openat/getdents64/statx loop, 1 thread", bareLoop});
  all.push_back(
      {"du -sb (less the folders' own bytes)", [own = foldersOwnBytes()] { return diskUsage() - own; }});
  all.push_back({"gdu -npa", gdu});
  all.push_back({"calculateSize, 1 thread", calculateSize});
  all.push_back(
      {"scanSystemJunk, SystemCache category", [] { return timed(CategoryInfomationKind::SystemCache); }});
  all.push_back({"scanSystemJunk, Common category", [] { return timed(CategoryInfomationKind::Common); }});
  return all;
}

/// Runs one variant alone.
int profile(std::string_view name, int rounds) {
  for (Variant& variant : allVariants()) {
    if (variant.name.find(name) == std::string::npos) continue;
    for (int i = 0; i < rounds; ++i) {
      const Outcome outcome = variant.run();
      std::printf("%-52s %9.4f s\n", variant.name.c_str(), outcome.seconds);
    }
    return 0;
  }
  return 2;
}

/// The longest time from the stop to the end, of several scans that are stopped midway.
double slowestStop() {
  double slowest = 0;
  for (const std::size_t stopAt : {1, 1000, 50000, 200000}) {
    slowest = std::max(slowest, WholeScan(CategoryInfomationKind::Common, stopAt).run().stopSeconds);
  }
  for (int i = 0; i < 3; ++i) {
    slowest = std::max(slowest, WholeScan(CategoryInfomationKind::SystemCache, 1).run().stopSeconds);
  }
  return slowest;
}

/// Compares the measured variants with each other and with their bounds; returns the program's exit status.
int judge(const std::vector<Variant>& variants, double wanted, const ScanOutcome& common) {
  const double slowest = slowestStop();
  std::printf("\n");
  Verdict verdict;
  const auto median = [&](std::size_t i) { return variants[i].median(); };
  verdict.same("calculateSize finds what the bare loop finds", variants[3].found, wanted);
  verdict.same("du -sb finds what the bare loop finds", variants[1].found, wanted);
  verdict.same("both categories give the items at the top the same sizes", variants[4].found,
               variants[5].found);
  verdict.same("one progress call and one record or empty item each", static_cast<double>(common.progress),
               static_cast<double>(entryCount));
  verdict.atMost("calculateSize / bare loop", median(3) / median(0), 1.1);
  verdict.atMost("calculateSize / du -sb", median(3) / median(1), 1.0);
  verdict.atMost("scanSystemJunk SystemCache / du -sb", median(4) / median(1), 0.6);
  verdict.atMost("scanSystemJunk SystemCache / gdu", median(4) / median(2), 0.6);
  verdict.atMost("scanSystemJunk Common / SystemCache", median(5) / median(4), 2.0);
  verdict.atMost("memory of a record in a Common scan", common.bytesPerRecord, 700, "B");
  verdict.atMost("a stop takes effect within", slowest * 1e3, 50, "ms");
  return verdict.exitStatus();
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 2) {
    std::fprintf(stderr, "usage: %s TREE [ROUNDS]\n", arguments[0]);
    return 2;
  }
  tree = arguments[1];
  const int rounds = count > 2 ? std::atoi(arguments[2]) : 7;
  sorrel::Host::install(sorrel::Host::linuxDesktop({"org.sorrel.WalkBench", "", {}}));

  if (count > 3) return profile(arguments[3], rounds);

  // Memory first, in a process that has not grown yet.
  const ScanOutcome common = WholeScan(CategoryInfomationKind::Common).run();
  const double wanted = bareLoop();

  std::vector<Variant> variants = allVariants();

  measure(variants, rounds);
  std::printf("%zu entries, %zu folders, %u threads\n\n", entryCount, folderCount + 1,
              std::thread::hardware_concurrency());
  print(variants, static_cast<double>(entryCount));
  return judge(variants, wanted, common);
}
