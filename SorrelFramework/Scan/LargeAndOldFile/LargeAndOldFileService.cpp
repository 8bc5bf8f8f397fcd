#include "SorrelFramework/Scan/LargeAndOldFile/LargeAndOldFileService.hpp"

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Platform/Base/Fatal.hpp"
#include "SorrelFramework/Platform/Files/FileManager.hpp"
#include "SorrelFramework/Platform/Items/ContentType.hpp"
#include "SorrelFramework/Platform/Machine/ChildNotes.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Queues/GlobalQueue.hpp"
#include "SorrelFramework/Platform/Queues/MainQueue.hpp"
#include "SorrelFramework/Platform/Text/Text.hpp"
#include "SorrelFramework/Scan/ItemProcedure.hpp"
#include "SorrelFramework/Scan/PercentService.hpp"
#include "SorrelFramework/Scan/ProgressPost.hpp"
#include "SorrelFramework/Scan/ScanRun.hpp"
#include "SorrelFramework/Scan/ScanStages.hpp"
#include "SorrelFramework/Scan/UnreadFolders.hpp"
#include "SorrelFramework/Units/LogService.hpp"
#include "SorrelFramework/Units/TerminalTool.hpp"

namespace sorrel {
namespace {

using Kind = LargeAndOldFileService::LargeAndFileKind;

constexpr const char* kFindTool = "/usr/bin/mdfind";
constexpr std::int64_t kEntrySize = 52'428'800;
constexpr std::int64_t kSteps = 3;
constexpr float kStepsOfATick = 1.0F;
constexpr ResourceKeys kKeys = NSURLLocalizedNameKey | NSURLFileSizeKey | NSURLEffectiveIconKey |
                               NSURLIsRegularFileKey | NSURLContentModificationDateKey |
                               NSURLLocalizedTypeDescriptionKey;

constexpr Integer kRowCount = rawValue(Kind::Small) + 1;
constexpr double kYear = 31'536'000;
constexpr double kMonth = 2'592'000;
constexpr double kWeek = 604'800;

struct TypeWord {
  std::string_view word;
  Kind kind;
};
constexpr std::array<TypeWord, 4> kTypeWords = {{
    {"image", Kind::Picture},
    {"movie", Kind::Movies},
    {"audio", Kind::Music},
    {"archive", Kind::Archives},
}};

/// The limits between the rows by age.
struct AgeLimits {
  Date year;
  Date month;
  Date week;
};

AgeLimits limitsOfNow() {
  const double now = Date::now().secondsSince1970;
  return {{now - kYear}, {now - kMonth}, {now - kWeek}};
}

Kind ageOf(const FileInformation& file, const AgeLimits& limits) {
  if (file.date < limits.year) return Kind::OneYear;
  if (file.date < limits.month) return Kind::OneMonth;
  if (file.date < limits.week) return Kind::OneWeek;
  return Kind::LastWeek;
}

Kind sizeBandOf(const FileInformation& file) {
  if (file.size >= LargeAndOldFileService::HugeSize) return Kind::Huge;
  if (file.size >= LargeAndOldFileService::AverageSize) return Kind::Average;
  return Kind::Small;
}

CategoryInformation& rowBelow(CategoryInformation& all, Integer kind) {
  const auto index = static_cast<std::size_t>(kind);
  if (!all.childrenCateogry || index >= all.childrenCateogry->size()) {
    fatalStop(kUnexpectedNil, "large and old files: the catalogue has no row " + std::to_string(kind));
  }
  return (*all.childrenCateogry)[index];
}

void empty(CategoryInformation& row) {
  row.childrens.clear();
  row.size = 0;
}

void emptyAll(CategoryInformation& all) {
  rowBelow(all, kRowCount - 1);
  empty(all);
  for (CategoryInformation& row : *all.childrenCateogry) empty(row);
}

void putInto(CategoryInformation& row, FileInformation& file) {
  row.childrens.push_back(Ref<FileInformation>(file));
  row.size = checkedAdd(row.size, file.size);
}

std::array<Integer, 3> rowsFor(const FileInformation& file, const AgeLimits& limits) {
  return {LargeAndOldFileService::sortTypeFile(file), rawValue(ageOf(file, limits)),
          rawValue(sizeBandOf(file))};
}

void putIntoRows(CategoryInformation& all, FileInformation& file, const std::array<Integer, 3>& kinds) {
  LargeAndOldFileService::Rows rows;
  for (const Integer kind : kinds) {
    CategoryInformation& row = rowBelow(all, kind);
    putInto(row, file);
    rows.emplace(kind, &row);
  }
  putInto(all, file);
  file.attachInformation = std::move(rows);
}

/// The state of a scan.
struct LargeFileScan {
  std::shared_ptr<ScanRun> run;
  LargeAndOldFileService::DoneFunc done;
  std::shared_ptr<ProgressPost> post;
  AgeLimits limits = limitsOfNow();
  std::optional<std::vector<std::string>> found = std::nullopt;  ///< by the tool; else the home is walked
  Integer count = 0;
  std::int64_t size = 0;

  [[nodiscard]] Ref<CategoryInformation> all() const {
    if (run->feature().categoryInfo.empty()) {
      fatalStop(kUnexpectedNil, "large and old files: the catalogue's feature has no row \"All\"");
    }
    return run->feature().categoryInfo.ref(0);
  }

  /// False if a newer scan owns the tree.
  [[nodiscard]] bool emptyTree() const {
    return run->changeTree([this] { emptyAll(*all()); });
  }

  /// False if a newer scan owns the tree.
  [[nodiscard]] bool add(const Ref<CategoryInformation>& all, const URL& url, ResourceValues values) {
    values.creationDate = values.contentModificationDate;  // the date that the rows by age use
    const auto record =
        makeRecord({NSControlStateValueOff, count, all->finderID, all}, url, values,
                   rawValue(FilesKind::File), values.fileSize.value_or(kDefaultRecordSize), true);
    const std::array<Integer, 3> kinds = rowsFor(*record, limits);  // reads the file
    if (!run->changeTree([&] { putIntoRows(*all, *record, kinds); })) return false;
    ++count;
    size = checkedAdd(size, record->size);
    post->add(url, record->size);
    post->tick();
    return true;
  }
};
using Scan = std::shared_ptr<LargeFileScan>;

Scan makeScan(std::shared_ptr<ScanRun> run, ProgressFunc progress, LargeAndOldFileService::DoneFunc done) {
  return std::make_shared<LargeFileScan>(LargeFileScan{
      std::move(run), std::move(done),
      std::make_shared<ProgressPost>(std::make_shared<const ProgressFunc>(std::move(progress)))});
}

void log(std::string text) { LogService::shard().log(LogService::LogLevel::Info, std::move(text)); }

/// True for a path below the home. Another home may begin with the same letters, and a path with ".." may end
/// elsewhere.
bool liesInHome(std::string_view path) {
  std::string home = Host::current().home();
  if (!home.ends_with('/')) home += '/';
  if (!path.starts_with(home)) return false;
  const std::string below = "/" + std::string(path.substr(home.size())) + "/";
  return below.find("/../") == std::string::npos;
}

void takeFoundPaths(LargeFileScan& scan) {
  scan.run->step();
  const Ref<CategoryInformation> all = scan.all();
  if (!scan.emptyTree()) return;
  for (const std::string& line : *scan.found) {
    if (!liesInHome(line)) continue;
    const URL url = URL::fileURL(line);
    auto values = resourceValues(url, kKeys);
    if (!values || !values->isRegularFile.value_or(false)) continue;
    if (!scan.add(all, url, *std::move(values))) return;
  }
}

void walkHome(LargeFileScan& scan) {
  const Ref<CategoryInformation> all = scan.all();
  if (!scan.emptyTree()) return;
  DirectoryEnumerator files(
      URL::fileURL(Host::current().home(), true),
      NSDirectoryEnumerationSkipsHiddenFiles | NSDirectoryEnumerationSkipsPackageDescendants,
      [unread = scan.run->unreadHandler()](const URL& url, int error) {
        if (UnreadFolders::isReason(error)) unread(url.path(), error);
        return true;
      });
  while (const DirectoryEnumerator::Item* const item = files.next()) {
    if (scan.run->isStopped()) return;
    // The other values are much more expensive than these, and few files are large.
    if (!item->status.isRegularFile() || item->status.size < kEntrySize) continue;
    if (!scan.add(all, item->url, files.values(kKeys))) return;
  }
}

void takeLines(LargeFileScan& scan, const std::string& output) {
  scan.found = componentsSeparatedBy(output, "\n");
  if (!scan.found->empty()) return;
  log("LargeAndOldScanService Code = 1");
  scan.found.reset();
}

/// The first stage.
void askTool(const Scan& scan, const StageThrough& through) {
  const Host& host = Host::current();
  if (!fileExists(host.tool(kFindTool))) {
    log("LargeAndOldScanService Code = 2");
    return through("no tool");
  }
  const auto notes = std::make_shared<const ChildNotes>();
  // In a large home the tool takes long, and it prints nothing until its end.
  const int error =
      TerminalUtilsClass(scan->run->feature().finderID)
          .runUntilStopped(
              kFindTool, {"-onlyin", host.home(), "kMDItemFSSize > " + std::to_string(kEntrySize)},
              scan->run->queue(),
              [scan, notes, through](const std::string& output) {
                scan->run->addUnread(UnreadFolders::fromText(notes->text()));
                takeLines(*scan, output);
                through(std::to_string(scan->found ? scan->found->size() : 0) + " lines");
              },
              notes.get());
  if (error == 0) return;
  // A tool that did not run has not found that there is nothing; for lack of descriptors, a walk needs fewer.
  log("LargeAndOldScanService Code = 2");
  through("tool not started");
}

/// The second stage.
void makeRecords(const Scan& scan, const StageThrough& through) {
  const auto work = [scan, through] {
    if (scan->found) {
      takeFoundPaths(*scan);
    } else {
      walkHome(*scan);
    }
    through(std::to_string(scan->count) + " files, " + std::to_string(scan->size) + " bytes");
  };
  if (scan->found) return work();  // on the queue of the scan
  GlobalQueue::submit(work);
}

/// The last stage. A scan that was replaced has left the tree to the newer one and reports no bytes.
void finish(const Scan& scan) {
  scan->post->flush();
  scan->run->step();
  MainQueue::post([scan] {
    if (scan->run->isReplaced()) scan->size = 0;
    scan->run->end();
    scan->run->endBar();  // neither kind of search takes all the steps that were announced
    if (scan->done) scan->done(scan->run->feature(), scan->size);
  });
}

/// The stages of a scan in their order.
void runAllStages(const Scan& scan, bool asksTool) {
  std::vector<ScanStage> stages;
  if (asksTool) stages.push_back({"tool", [scan](const StageThrough& through) { askTool(scan, through); }});
  stages.push_back({"records", [scan](const StageThrough& through) { makeRecords(scan, through); }});
  stages.push_back({"end", [scan](const StageThrough& /*through*/) { finish(scan); }});
  runStages("LargeAndOldScanService", std::move(stages), {});
}

bool isDeleted(const FileInformation& file) {
  return file.state == NSControlStateValueOn && file.deleteStatus == rawValue(DeleteStatus::DeleteSuccess);
}

}  // namespace

void LargeAndOldFileService::scanLargeAndOldFile(FeatureInformation& featureInfo, ProgressFunc progress,
                                                 PercentFunc showPercent, SingleDoneFunc singleDone,
                                                 DoneFunc done, std::shared_ptr<WeftSerialQueue> dispatch) {
  scanProLargeAndOldFileFast(featureInfo, std::move(progress), std::move(showPercent), std::move(singleDone),
                             std::move(done), std::move(dispatch));
}

// NOLINTBEGIN(performance-unnecessary-value-param): as all scanners
void LargeAndOldFileService::scanProLargeAndOldFileFast(FeatureInformation& featureInfo,
                                                        ProgressFunc progress, PercentFunc showPercent,
                                                        SingleDoneFunc /*singleDone*/, DoneFunc done,
                                                        std::shared_ptr<WeftSerialQueue> dispatch) {
  const auto bar = std::make_shared<PercentService>(std::move(showPercent), kSteps, kStepsOfATick);
  auto run = ScanRun::begin(featureInfo, std::move(dispatch), bar);
  if (!run) return log("LargeAndOldScanService Scanning");
  log("LargeAndOldScanService Start");
  const Scan scan = makeScan(std::move(run), std::move(progress), std::move(done));
  // A child process may take long: no thread of the bounded pool may wait for it.
  GlobalQueue::submitBlocking([scan] { runAllStages(scan, true); });
}

void LargeAndOldFileService::scanProLargeAndOldFileCommon(FeatureInformation& featureInfo,
                                                          ProgressFunc progress, PercentFunc /*showPercent*/,
                                                          SingleDoneFunc /*singleDone*/, DoneFunc done,
                                                          std::shared_ptr<WeftSerialQueue> dispatch,
                                                          std::shared_ptr<PercentService> service) {
  runAllStages(makeScan(std::make_shared<ScanRun>(featureInfo, std::move(dispatch), std::move(service)),
                        std::move(progress), std::move(done)),
               false);
}
// NOLINTEND(performance-unnecessary-value-param)

Integer LargeAndOldFileService::sortTypeFile(const FileInformation& file) {
  for (const std::string& type : contentTypeTree(file.url.path())) {
    const std::string text = lowercased(type);
    for (const TypeWord& row : kTypeWords) {
      if (text.find(row.word) != std::string::npos) return rawValue(row.kind);
    }
  }
  return rawValue(LargeAndFileKind::Other);
}

void LargeAndOldFileService::addToChildrenCategory(CategoryInformation& allCategory, FileInformation& file,
                                                   Date yearTime, Date monthTime, Date weekTime) {
  putIntoRows(allCategory, file, rowsFor(file, {yearTime, monthTime, weekTime}));
}

std::tuple<std::int64_t, FileRecords, std::string> LargeAndOldFileService::sortCategory(
    CategoryInformation& allCategory) {
  std::int64_t size = 0;
  FileRecords removed;
  std::string paths;
  FileRecords remaining;
  for (FileInformation& file : allCategory.childrens) {
    if (!isDeleted(file)) {
      remaining.emplace_back(file);
      continue;
    }
    size = checkedAdd(size, file.size);
    removed.emplace_back(file);
    paths += file.url.path() + ",";
  }

  emptyAll(allCategory);
  const AgeLimits limits = limitsOfNow();
  Integer position = 0;
  for (const Ref<FileInformation>& file : remaining) {
    file->finderID = position++;
    file->state = NSControlStateValueOff;
    addToChildrenCategory(allCategory, *file, limits.year, limits.month, limits.week);
  }
  return {size, std::move(removed), std::move(paths)};
}

}  // namespace sorrel
