#include "Host/CleanCommand.hpp"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Host/ChosenFeature.hpp"
#include "Host/CleanProgress.hpp"
#include "Host/CleanReport.hpp"
#include "Host/CleanSession.hpp"
#include "Host/Cleaners.hpp"
#include "Host/CommandError.hpp"
#include "Host/ExceptionGlobs.hpp"
#include "Host/FeatureTable.hpp"
#include "Host/GlobOptions.hpp"
#include "Host/HelperAccess.hpp"
#include "Host/HostSetup.hpp"
#include "Host/InterruptWatch.hpp"
#include "Host/Invocation.hpp"
#include "Host/JsonDocument.hpp"
#include "Host/Output.hpp"
#include "Host/SafeText.hpp"
#include "Host/ScanSession.hpp"
#include "Host/StopSwitch.hpp"
#include "Host/TextTree.hpp"
#include "Host/UnreadNote.hpp"
#include "SorrelFramework/Clean/TrashRecords.hpp"
#include "SorrelFramework/Clean/TrashRemains.hpp"
#include "SorrelFramework/HelpTool/PrivilegeHelper.hpp"
#include "SorrelFramework/HelpTool/SystemHelperInstallation.hpp"
#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Model/RecordName.hpp"
#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Platform/Base/Date.hpp"
#include "SorrelFramework/Platform/Files/FileManager.hpp"
#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Queues/MainQueue.hpp"
#include "SorrelFramework/Selection/CoveredTicks.hpp"
#include "SorrelFramework/Selection/Globs.hpp"
#include "SorrelFramework/Selection/LastCopies.hpp"
#include "SorrelFramework/Selection/Ticks.hpp"

namespace sorrel::cli {
namespace {

void refuseHalfOrders(const CleanOptions& order) {
  if (order.all == !order.globs.empty()) {
    throw CommandError(ExitStatus::WrongUse, "a clean takes either --all or --select GLOB...");
  }
  if (order.dryRun == order.yes) {
    throw CommandError(
        ExitStatus::WrongUse,
        "a clean takes either --dry-run, which shows what would go, or --yes, which removes it.");
  }
}

const Feature& cleanedFeature(const Invocation& invocation) {
  const Feature& chosen = scannedFeature(invocation);
  if (chosen.cleaner.start != nullptr) return chosen;
  throw CommandError(ExitStatus::WrongUse,
                     "this version of sorrel cannot clean '" + std::string(chosen.name) + "'.");
}

void tellUnused(const Globs& globs, const Invocation& invocation) {
  if (invocation.options.quiet) return;
  for (const std::string& glob : globs.unused()) {
    std::cerr << "sorrel: nothing is called '" << printable(glob) << "'\n";
  }
}

void tick(FeatureInformation& feature, const Invocation& invocation) {
  if (invocation.clean.all) return tickAll(feature);
  Globs globs(invocation.clean.globs);
  tickMatching(feature, globs);
  tellUnused(globs, invocation);
}

/// Searches the trash folders for items that no scan lists: an exception may name one of them.
void findUnlisted(const FeatureInformation& trash, Globs& globs) {
  for (const CategoryInformation& category : trash.categoryInfo) {
    for (const URL& root : category.urls) holdsMatch(pathOf(root), globs);
  }
}

/// If an exception matches nothing, the items it was meant to keep would be removed.
void refuseUnused(const Globs& exceptions) {
  const std::vector<std::string> unused = exceptions.unused();
  if (unused.empty()) return;
  std::string list;
  for (const std::string& glob : unused) list += (list.empty() ? "'" : ", '") + glob + "'";
  throw CommandError(ExitStatus::WrongUse,
                     "nothing was removed: --except names nothing that was found by " + list + ".");
}

void untickExceptions(const Cleaner& cleaner, FeatureInformation& feature, const Invocation& invocation) {
  if (invocation.clean.exceptions.empty()) return;
  Globs globs = exceptionGlobs(invocation.clean.exceptions);
  for (const std::string& folder : untickMatching(feature, globs)) {
    std::cerr << "sorrel: left whole, as --except names something in it: '" << printable(folder) << "'\n";
  }
  if (cleaner.isTrash && !globs.areAllUsed()) findUnlisted(feature, globs);
  refuseUnused(globs);
}

ExitStatus showStopped(const Invocation& invocation, FeatureInformation& feature, const ScanOutcome& scan) {
  clearTicks(feature);
  if (invocation.options.json) {
    writeScanDocument(std::cout, feature, scan);
  } else {
    writeScan(std::cout, feature, scan.size, invocation.order);
  }
  finishOutput();
  std::cerr << "sorrel: stopped before anything was removed\n";
  return ExitStatus::Stopped;
}

/// The items in the trash folders of a feature that no scan lists, if everything is to be removed. No
/// exception could name them.
TrashRemains remainsOf(const Cleaner& cleaner, FeatureInformation& feature, const CleanOptions& order) {
  std::vector<URL> roots;
  if (cleaner.isTrash && order.all && order.exceptions.empty()) {
    for (const CategoryInformation& category : feature.categoryInfo)
      roots.insert(roots.end(), category.urls.begin(), category.urls.end());
  }
  return TrashRemains::find(roots, Date::now());
}

constexpr const char* kWhyYoungStay =
    "Its item is not in the trash, and may be on the way there: the record can go when it is an hour old.";

/// Adds what will go or has gone, and the records that stay, to the rows. A scan may list a folder of nothing
/// but links too.
void addRemains(const TrashRemains& remains, std::vector<CleanItem>& items, bool isDone) {
  std::set<std::string> names;
  for (const CleanItem& item : items) names.insert(item.name);
  for (const TrashRemains::Item& item : remains.items()) {
    if (names.contains(item.path) || (isDone && sorrel::statusOf(item.path))) continue;
    items.push_back({item.path, item.size, isDone, !isDone, false, ""});
  }
  for (const TrashRemains::Item& record : remains.youngRecords())
    items.push_back({record.path, record.size, false, true, true, kWhyYoungStay, true});
}

/// A document has no place for what no scan lists.
void nameYoungRecords(const TrashRemains& remains) {
  for (const TrashRemains::Item& record : remains.youngRecords())
    std::cerr << "sorrel: left '" << printable(record.path) << "'. " << kWhyYoungStay << '\n';
}

ExitStatus showPlan(const Invocation& invocation, const Cleaner& cleaner, FeatureInformation& feature,
                    const ScanOutcome& scan) {
  const TrashRemains remains = remainsOf(cleaner, feature, invocation.clean);
  if (invocation.options.json) {
    writeScanDocument(std::cout, feature, scan);
    nameYoungRecords(remains);
  } else {
    if (cleaner.shape == TreeShape::Groups) untickCovered(feature);
    std::vector<CleanItem> items = cleanItems(tickedRecords(cleaner.shape, feature));
    addRemains(remains, items, false);
    writePlan(std::cout, items, invocation.order);
  }
  finishOutput();
  return ExitStatus::Done;
}

CleanOutcome outcomeOf(const CleanResult& result, std::string records) {
  CleanOutcome outcome{result.size, result.status, result.desc, {}, result.progress, std::move(records)};
  for (const Ref<FileInformation>& file : result.abnormalFiles)
    outcome.abnormalFiles.push_back(nameOf(*file));
  return outcome;
}

bool isHelperInstalled() {
  const std::string name = Host::current().mainBundle().identifier + "Helper";
  const SystemHelperInstallation installation;
  return fileExists(installation.serviceFile(name)) && fileExists(installation.program(name));
}

/// Reports why the helper did not remove the items left to it.
void reportHelper(const std::vector<CleanItem>& items) {
  const bool isWanted =
      std::ranges::any_of(items, [](const CleanItem& item) { return item.isLeft && !item.isRefused; });
  if (!isWanted || PrivilegeHelper::shard().helpTool() != nullptr) return;
  std::cerr << (isHelperInstalled()
                    ? "sorrel: the privileged helper cannot be started\n"
                    : "sorrel: there is no privileged helper to remove what you may not remove yourself\n");
}

/// The exit status of a clean that has ended and was reported.
ExitStatus statusOf(const std::vector<CleanItem>& items, bool isCleared, bool isStopped) {
  if (isStopped) {
    std::cerr << "sorrel: stopped. What is listed as removed is gone, the rest was left as it is.\n";
    return ExitStatus::Stopped;
  }
  if (PrivilegeHelper::shard().lostCalls() > 0) {
    std::cerr << "sorrel: the privileged helper ended before it had finished. What is listed as removed is "
                 "gone.\n";
    return ExitStatus::Failed;
  }
  if (isCleared && std::ranges::all_of(items, &CleanItem::isGone)) return ExitStatus::Done;
  reportHelper(items);
  return ExitStatus::Failed;
}

std::int64_t bytesOfGone(const TrashRemains& remains) {
  std::int64_t bytes = 0;
  for (const TrashRemains::Item& item : remains.items()) {
    if (!sorrel::statusOf(item.path)) bytes = checkedAdd(bytes, item.size);
  }
  return bytes;
}

/// Removes `remains`, adds the removed ones to `items`, and names those that stayed; false if there are any.
bool removeRemains(const TrashRemains& remains, std::vector<CleanItem>& items, StopSwitch& stop) {
  std::set<std::string> left;
  for (const CleanItem& item : items) {
    const auto record = item.isGone ? TrashRecords::recordLeftBy(item.name) : std::nullopt;
    if (record) left.insert(*record);
  }
  const auto isStopped = [&stop] {
    MainQueue::runUntil([&stop] { return stop.isPulled(); }, std::chrono::milliseconds(0));
    return stop.isPulled();
  };
  for (const std::string& path : remains.remove(isStopped)) left.insert(path);
  addRemains(remains, items, true);
  for (const std::string& path : stop.isPulled() ? std::vector<std::string>() : remains.itemsThatStayed()) {
    if (std::ranges::find(items, path, &CleanItem::name) == items.end()) left.insert(path);
  }
  for (const std::string& path : left) {
    std::cerr << "sorrel: could not clear away '" << printable(path) << "'\n";
  }
  return left.empty();
}

struct CleanSurroundings {
  std::shared_ptr<CleanProgress> progress;
  std::shared_ptr<void> helper;
};

/// If both streams are a terminal, the user can see a question and answer it.
CleanSurroundings setUpProgressAndHelper(const Invocation& invocation, const Cleaner& cleaner,
                                         FeatureInformation& feature) {
  const bool isTerminal = ::isatty(STDERR_FILENO) == 1;
  const bool isShown = isTerminal && !invocation.options.json && !invocation.options.quiet;
  std::vector<CleanItem> items;
  if (isShown) items = cleanItems(tickedRecords(cleaner.shape, feature));
  auto progress = std::make_shared<CleanProgress>(isShown, items);
  auto helper = setUpHelper(isTerminal && ::isatty(STDIN_FILENO) == 1,
                            [progress](const std::string& text) { progress->announce(text); });
  return {std::move(progress), std::move(helper)};
}

ExitStatus cleanTicked(const Invocation& invocation, const Cleaner& cleaner,
                       const Ref<FeatureInformation>& feature, const ScanOutcome& scan, StopSwitch& stop) {
  const FileRecords covered = cleaner.shape == TreeShape::Groups ? untickCovered(*feature) : FileRecords();
  std::ostringstream records;
  std::vector<CleanItem> items;
  const auto onDeleted = [&](const FileRecords& handed) {
    items = cleanItems(handed);
    if (invocation.options.json) writeRecords(records, handed);
  };
  auto surroundings = setUpProgressAndHelper(invocation, cleaner, *feature);
  const TrashRemains remains = remainsOf(cleaner, *feature, invocation.clean);
  const auto result = runClean(cleaner, feature, stop, *surroundings.progress, onDeleted);
  surroundings.helper.reset();
  if (!result) return showStopped(invocation, *feature, scan);
  removeCoveredThatAreGone(*feature, covered);
  const bool isCleared = !cleaner.isTrash || stop.isPulled() || removeRemains(remains, items, stop);
  if (invocation.options.json) {
    writeCleanDocument(std::cout, *feature, scan, outcomeOf(*result, std::move(records).str()));
    nameYoungRecords(remains);
  } else {
    writeCleaned(std::cout, items, checkedAdd(result->size, bytesOfGone(remains)), invocation.order);
  }
  finishOutput();
  return statusOf(items, isCleared, stop.isPulled());
}

}  // namespace

void takeCleanArguments(CLI::App& parser, Invocation& invocation) {
  takeFeatureAndPaths(parser, invocation);
  CleanOptions& order = invocation.clean;
  parser.add_flag("--all", order.all, "Clean everything that the scan finds");
  addGlobOptions(parser, order);
  parser.add_flag("--dry-run", order.dryRun, "Show what would go and remove nothing");
  parser.add_flag("--yes", order.yes, "Remove it");
  parser.add_flag("--even-last-copy", order.evenLastCopy, "Of alike files, leave not even one");
}

ExitStatus runCleanCommand(const Invocation& invocation, InterruptWatch& interrupts) {
  const GlobalOptions& options = invocation.options;
  const Feature& chosen = cleanedFeature(invocation);
  const Cleaner& cleaner = chosen.cleaner;
  refuseHalfOrders(invocation.clean);
  installHost(options);
  ScanScope scope = scopeFor(chosen, invocation);
  const Ref<FeatureInformation> feature = featureOfCatalogue(chosen, invocation);
  clearTicks(*feature);  // a scan copies them to its records
  prepareScan(chosen, *feature);

  const auto stop = std::make_shared<StopSwitch>();
  interrupts.start([stop] { stop->pull(); });
  const timespec began = beginOfChanges();
  const SessionResult scan =
      runScan(chosen.scanner, feature, std::move(scope), *stop, !options.json && !options.quiet);
  if (!options.quiet) writeUnreadFolders(std::cerr, chosen.number);
  if (stop->isPulled()) return showStopped(invocation, *feature, scan.outcome);
  tick(*feature, invocation);
  untickExceptions(cleaner, *feature, invocation);
  if (!invocation.clean.evenLastCopy) refuseWholeGroups(cleaner, *feature);
  refuseChangedGroups(cleaner, *feature, began);
  if (invocation.clean.dryRun) return showPlan(invocation, cleaner, *feature, scan.outcome);
  return cleanTicked(invocation, cleaner, feature, scan.outcome, *stop);
}

}  // namespace sorrel::cli
