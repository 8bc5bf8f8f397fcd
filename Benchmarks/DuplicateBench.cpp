// A scan for duplicates against the tools a user would pick instead: fdupes, jdupes, rdfind, rmlint.
// usage: DuplicateBench SET [ROUNDS]              whole scans of a set that make_duplicates.py made
//        DuplicateBench cold SET [ROUNDS]         the same with nothing of it in memory; for root
//        DuplicateBench walk TREE LARGE [ROUNDS]  the walk alone, over two trees that make_tree.py made
//        DuplicateBench real FOLDER [KIB]         a tree of this machine: the groups against those of jdupes
// Each program runs as a child of its own; `DuplicateBench scan FOLDER KIB` is the engine's, which prints its
// groups as jdupes does, those of folders file by file.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "Benchmarks/BareWalk.hpp"
#include "Benchmarks/ChildRun.hpp"
#include "Benchmarks/PeerScans.hpp"
#include "Benchmarks/SideBySide.hpp"
#include "SorrelFramework/Model/ModuleInfo.hpp"
#include "SorrelFramework/Platform/Items/ContentType.hpp"
#include "SorrelFramework/Platform/Items/DirectoryEnumerator.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Queues/MainQueue.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateScanService.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateWalk.hpp"

namespace {

using namespace sorrel;
using namespace sorrel::bench;
namespace fs = std::filesystem;

// The engine, in a process of its own

Ref<FeatureInformation> makeFeature() {
  const auto module =
      makeRef<ModuleInformation>(Integer{1}, "Module", "", Image(), "", "", Children<FeatureInformation>());
  auto feature = makeRef<FeatureInformation>(Integer{7}, Integer{0}, Image(), "Duplicates", "",
                                             Children<CategoryInformation>(), module, std::any());
  module->featureInfo.push_back(feature);
  feature->categoryInfo.push_back(makeRef<CategoryInformation>(
      Integer{0}, Integer{0}, "All", Image(), std::int64_t{0}, "", rawValue(CategoryInfomationKind::Common),
      std::vector<URL>(), Children<FileInformation>(), feature, std::any(), Integer{0}, false));
  return feature;
}

void printFolders(const FileInformation& header) {
  std::map<std::size_t, std::vector<std::string>> files;
  for (const FileInformation& member : header.childrens) {
    std::size_t place = 0;
    DirectoryEnumerator items(member.url, NSDirectoryEnumerationSkipsHiddenFiles);
    while (const auto* item = items.next()) {
      if (!item->status.isRegularFile()) continue;
      if (item->status.size > DuplicateScanService::limitSize * 1024)
        files[place].push_back(item->url.path());
      ++place;
    }
  }
  for (const auto& [place, paths] : files) {
    for (const std::string& path : paths) std::cout << path << '\n';
    std::cout << '\n';
  }
}

int scan(const std::string& folder, Integer limit) {
  for (Integer kind = 0; kind < 7; ++kind) DuplicateScanService::childrenCateogryDict[kind] = "Kind";
  DuplicateScanService::limitSize = limit;
  const auto feature = makeFeature();
  bool isDone = false;
  DuplicateScanService::scanDuplicate(
      *feature, {URL::fileURL(folder, true)}, {}, {}, {},
      [&](FeatureInformation&, std::int64_t) { MainQueue::post([&isDone] { isDone = true; }); },
      std::make_shared<WeftSerialQueue>(WeftQOS::UserInitiated), WeftQOS::UserInitiated);
  MainQueue::runUntil([&isDone] { return isDone; }, std::chrono::minutes(10));
  for (const FileInformation& header : feature->categoryInfo[0].childrens) {
    if (header.fileKind == rawValue(FilesKind::Folder)) {
      printFolders(header);
      continue;
    }
    for (const FileInformation& member : header.childrens) std::cout << member.url.path() << '\n';
    std::cout << '\n';
  }
  return 0;
}

/// A folder for the programs' output.
class OutputFolder {
 public:
  OutputFolder() {
    std::string name = (fs::temp_directory_path() / "sorrel-bench.XXXXXX").string();
    if (::mkdtemp(name.data()) != nullptr) path_ = name;
  }
  ~OutputFolder() {
    if (!path_.empty()) fs::remove_all(path_);
  }
  OutputFolder(const OutputFolder&) = delete;
  OutputFolder& operator=(const OutputFolder&) = delete;
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

/// Drops all cached data of the disks. False if that isn't allowed.
bool dropCaches() {
  ::sync();
  std::ofstream file("/proc/sys/vm/drop_caches");
  return static_cast<bool>(file << "3" << std::flush);
}

enum class Cache : std::uint8_t { Warm, Cold };

/// A scan by each of the programs; their results are kept.
std::vector<Variant> scansOf(std::vector<Program>& programs, const std::string& place, Cache cache) {
  std::vector<Variant> variants;
  variants.reserve(programs.size());
  for (Program& program : programs) {
    variants.push_back({program.name, [&program, place, cache] {
                          if (cache == Cache::Cold) dropCaches();
                          const ChildRun run = runChild(program.words, place + "/out");
                          program.groups = program.read(program.result);
                          program.peakKiB = std::max(program.peakKiB, run.peakKiB);
                          return Outcome(static_cast<double>(program.groups.size()), run.seconds);
                        }});
  }
  return variants;
}

int compareScans(const std::string& set, int rounds, const std::string& self, Cache cache) {
  if (cache == Cache::Cold && !dropCaches()) {
    std::printf("the page cache can't be dropped here: no cold scans\n");
    return 0;
  }
  const OutputFolder folder;
  std::vector<Program> programs = programsFor(set, self, folder.path());
  std::vector<Variant> variants = scansOf(programs, folder.path(), cache);
  measure(variants, rounds);
  double files = 0;
  for (const Group& group : programs[0].groups) files += static_cast<double>(group.size());
  print(variants, files);
  const double idle = runChild({self, "idle"}, folder.path() + "/out").peakKiB;

  std::printf("\n");
  Verdict verdict;
  for (const Program& program : programs) {
    std::printf("%-70s %8.1f MiB\n", ("peak memory of " + program.name).c_str(), program.peakKiB / 1024);
  }
  for (std::size_t i = 1; i < programs.size(); ++i) {
    verdict.same("groups are those of " + programs[i].name, programs[0].groups == programs[i].groups ? 1 : 0,
                 1);
  }
  verdict.same("there are groups", programs[0].groups.empty() ? 0 : 1, 1);
  const double wanted[] = {0, 0.5, 0.5, 0.8, 0.8, 1.0};
  for (std::size_t i = 1; i < variants.size(); ++i)
    verdict.atMost("scan / " + variants[i].name, variants[0].median() / variants[i].median(), wanted[i]);
  verdict.atMost("peak memory above an idle process / rmlint's",
                 (programs[0].peakKiB - idle) / std::min(programs[3].peakKiB, programs[4].peakKiB), 1.0);
  return verdict.exitStatus();
}

// The walk alone

double residentBytes() {
  long total = 0;
  long resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return static_cast<double>(resident) * static_cast<double>(::sysconf(_SC_PAGESIZE));
}

/// A walk that keeps a record of every file and folder above a limit.
struct KeptWalk {
  explicit KeptWalk(const std::string& tree, std::int64_t limit = -1) {
    DuplicateWalkRules rules;
    rules.limit = limit;
    const double before = residentBytes();
    DuplicateWalk(rules, [this](DuplicateInfo info) {
      DuplicatesBySize& dictionary = info.fileOrPath ? files : folders;
      dictionary[info.fileSize].push_back(std::move(info));
      ++records;
    }).folderBackTracking(URL::fileURL(tree, true));
    bytesPerRecord = (residentBytes() - before) / static_cast<double>(records);
  }
  DuplicatesBySize files;
  DuplicatesBySize folders;
  std::size_t records = 0;
  double bytesPerRecord = 0;
};

int compareWalks(const std::vector<std::string>& trees, int rounds) {
  const double bytesPerRecord = KeptWalk(trees[1]).bytesPerRecord;  // while the process has not grown yet
  std::vector<Variant> variants;
  std::vector<double> entries;
  for (const std::string& tree : trees) {
    BareWalk bare;
    bare.run(tree);
    entries.push_back(static_cast<double>(bare.entries));
    variants.push_back({"bare loop over " + tree, [&tree] { return Outcome(BareWalk().run(tree)); }});
    for (const std::int64_t limit : {kLimit * 1024, Integer{-1}}) {
      const std::string what = limit < 0 ? "DuplicateWalk keeping all of " : "DuplicateWalk over ";
      variants.push_back({what + tree, [&tree, limit] {
                            const auto start = std::chrono::steady_clock::now();
                            const KeptWalk walk(tree, limit);
                            const std::chrono::duration<double> took =
                                std::chrono::steady_clock::now() - start;
                            return Outcome(static_cast<double>(walk.records), took.count());
                          }});
    }
  }
  measure(variants, rounds);
  print(variants, entries[1]);
  std::printf("\n");
  Verdict verdict;
  for (const std::size_t i : {1U, 4U})
    verdict.atMost(variants[i].name + " / bare loop", variants[i].median() / variants[i - 1].median(), 1.5);
  for (const std::size_t i : {1U, 2U}) {
    verdict.atMost(i == 1 ? "time an entry, large tree / small tree" : "the same, keeping all",
                   variants[i + 3].median() / entries[1] / (variants[i].median() / entries[0]), 1.3);
  }
  verdict.atMost("memory of a record", bytesPerRecord, 1.2 * 1024, "B");
  return verdict.exitStatus();
}

// A tree of this machine

/// Folders that are never entered, and those that the hash of folders would leave out.
bool isOutOfReach(const std::string& path, const std::string& top) {
  const std::string below = path.substr(top.size());
  if (below.find("/Cache") != std::string::npos) return true;
  const fs::path folders = fs::path(below).parent_path();
  return std::ranges::any_of(folders, [](const fs::path& name) { return isPackageName(name.string()); });
}

/// Puts a file of a unique size into each folder, so that no two folders are equal: only files remain to be
/// found.
void makeFoldersDiffer(const std::string& tree) {
  std::vector<fs::path> folders{tree};
  for (const auto& entry : fs::recursive_directory_iterator(tree)) {
    if (entry.is_directory() && !entry.is_symlink()) folders.push_back(entry.path());
  }
  std::mt19937_64 random(1);
  for (const fs::path& folder : folders) {
    const fs::path mark = folder / "a-size-of-its-own";
    std::ofstream(mark).close();
    fs::resize_file(mark, (std::uintmax_t{1} << 40U) + random() % (std::uintmax_t{1} << 40U));
  }
}

Groups withoutFilesOutOfReach(const Groups& groups, const std::string& top) {
  Groups left;
  for (Group group : groups) {
    std::erase_if(group, [&top](const std::string& path) { return isOutOfReach(path, top); });
    if (group.size() > 1) left.insert(std::move(group));
  }
  return left;
}

void printMissing(const Groups& some, const Groups& others, const char* who) {
  for (const Group& group : some) {
    if (!others.contains(group))
      std::printf("%s does not have the group of %s\n", who, group.begin()->c_str());
  }
}

int compareReal(const std::string& folder, const std::string& limit, const std::string& self) {
  const OutputFolder place;
  const std::string out = place.path() + "/out";
  const std::string copy = place.path() + "/copy";
  runChild({"cp", "-a", folder, copy}, out);
  makeFoldersDiffer(copy);
  const std::string least = std::to_string(std::stoll(limit) * 1024 + 1);
  runChild({self, "scan", copy, limit}, out);
  const Groups ours = groupsOfLines(out);
  runChild({"jdupes", "-r", "-q", "-A", "-H", "-X", "size+=:" + least, copy}, out);
  const Groups theirs = withoutFilesOutOfReach(groupsOfLines(out), copy);
  std::size_t files = 0;
  for (const Group& group : ours) files += group.size();
  std::printf("%s above %s KiB: %zu groups of %zu files\n", folder.c_str(), limit.c_str(), ours.size(),
              files);
  printMissing(ours, theirs, "jdupes");
  printMissing(theirs, ours, "the scan");
  Verdict verdict;
  verdict.same("there are groups", ours.empty() ? 0 : 1, 1);
  verdict.same("groups are those of jdupes", ours == theirs ? 1 : 0, 1);
  return verdict.exitStatus();
}

}  // namespace

int main(int count, char** arguments) {
  const std::vector<std::string> words(arguments + 1, arguments + count);
  const std::string self = fs::read_symlink("/proc/self/exe").string();
  Host::install(Host::linuxDesktop({"org.sorrel.DuplicateBench", "", {}}));
  const auto roundsAt = [&](std::size_t place) { return words.size() > place ? std::stoi(words[place]) : 7; };
  if (words.empty()) {
    std::fprintf(
        stderr, "usage: %s SET [ROUNDS] | cold SET [ROUNDS] | walk TREE LARGE [ROUNDS] | real FOLDER [KIB]\n",
        arguments[0]);
    return 2;
  }
  if (words[0] == "idle") return 0;
  if (words[0] == "cold" && words.size() > 1) return compareScans(words[1], roundsAt(2), self, Cache::Cold);
  if (words[0] == "scan" && words.size() == 3) return scan(words[1], std::stoll(words[2]));
  if (words[0] == "walk" && words.size() > 2) return compareWalks({words[1], words[2]}, roundsAt(3));
  if (words[0] == "real" && words.size() > 1)
    return compareReal(words[1], words.size() > 2 ? words[2] : "0", self);
  return compareScans(words[0], roundsAt(1), self, Cache::Warm);
}
