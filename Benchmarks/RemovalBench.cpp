// Removal of a large folder, by the removal core and by a whole clean, against rm(1). A canary stands beside
// it. usage: RemovalBench FOLDER [ROUNDS]; the trees are made in FOLDER. One on a memory file system shows
// the programs' own cost best: on a disk, most of the time is the file system's.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <any>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "Benchmarks/SideBySide.hpp"
#include "SorrelFramework/Clean/CleanService.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Removal/TreeRemoval.hpp"

namespace {

using namespace sorrel;
using namespace sorrel::bench;

constexpr int kFolders = 10'000;
constexpr int kFilesInEach = 10;
constexpr int kFoldersInOne = 100;
constexpr int kTopFolders = kFolders / kFoldersInOne;
constexpr double kEntries = kFolders * (kFilesInEach + 1) + kTopFolders + 1;

std::string tree;
std::string canary;

std::string folderAbove(int folder) { return tree + '/' + std::to_string(folder / kFoldersInOne); }
std::string pathOf(int folder) { return folderAbove(folder) + '/' + std::to_string(folder); }

void makeTree() {
  ::mkdir(tree.c_str(), 0700);
  for (int i = 0; i < kFolders; ++i) {
    const std::string folder = pathOf(i);
    if (i % kFoldersInOne == 0) ::mkdir(folderAbove(i).c_str(), 0700);
    ::mkdir(folder.c_str(), 0700);
    for (int j = 0; j < kFilesInEach; ++j) {
      ::mknod((folder + "/file" + std::to_string(j)).c_str(), S_IFREG | 0600, 0);
    }
  }
}

bool runTool() {
  const pid_t child = ::fork();
  if (child == 0) {
    ::execlp("rm", "rm", "-rf", "--", tree.c_str(), static_cast<char*>(nullptr));
    ::_exit(127);
  }
  int status = 0;
  return ::waitpid(child, &status, 0) == child && status == 0;
}

bool runOwn() {
  const RemovalPolicy policy = RemovalPolicy::forUser();
  return removeItem(tree, policy).removedEntries == static_cast<std::uint64_t>(kEntries);
}

class Finish : public CleanServiceProtocol {
 public:
  void cleanFinished(const std::vector<Ref<CategoryInformation>>& allCategorys, std::int64_t size,
                     const FileRecords& abnormalFiles, Integer /*status*/,
                     const std::string& /*desc*/) override {
    end_.set_value(allCategorys.at(0)->childrens.empty() && size == kFolders && abnormalFiles.empty());
  }
  void cleanProgress(float /*percent*/) override {}
  bool wait() { return end_.get_future().get(); }

 private:
  std::promise<bool> end_;
};

Ref<FileInformation> makeRecord(const std::string& path, std::int64_t size,
                                const std::vector<Ref<FileInformation>>& childrens) {
  const URL url = URL::fileURL(path, true);
  return makeRef<FileInformation>(NSControlStateValueOn, 0, 0, url.lastPathComponent(), Image(), size,
                                  Date{0}, url, "", true, false, std::any(),
                                  Children<FileInformation>(childrens), Ref<CategoryInformation>(),
                                  rawValue(FilesKind::Folder), 0);
}

/// A tree of records whose leaves are the folders, all ticked.
std::vector<Ref<CategoryInformation>> makeRecords() {
  std::vector<Ref<FileInformation>> above;
  for (int i = 0; i < kFolders; i += kFoldersInOne) {
    std::vector<Ref<FileInformation>> folders;
    for (int j = i; j < i + kFoldersInOne; ++j) folders.push_back(makeRecord(pathOf(j), 1, {}));
    above.push_back(makeRecord(folderAbove(i), kFoldersInOne, folders));
  }
  return {makeRef<CategoryInformation>(
      NSControlStateValueOn, 0, "bench", Image(), kFolders, "", rawValue(CategoryInfomationKind::Common),
      std::vector<URL>(), Children<FileInformation>(above), Ref<FeatureInformation>(), std::any(), 0, false)};
}

/// From the ticks to the last callback. A record with children is not removed itself, so the hundred and one
/// folders above the others remain.
Outcome runClean(const std::function<void()>& installHost) {
  makeTree();
  installHost();
  const std::vector<Ref<CategoryInformation>> records = makeRecords();
  const auto finish = std::make_shared<Finish>();
  const auto start = std::chrono::steady_clock::now();
  CleanService::cleanCategorys(records, CleanServiceType::Common, finish);
  bool isDone = finish->wait();
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  for (int i = 0; i < kFolders; i += kFoldersInOne) isDone = ::rmdir(folderAbove(i).c_str()) == 0 && isDone;
  isDone = ::rmdir(tree.c_str()) == 0 && isDone;
  return {isDone ? kEntries : 0.0, took.count()};
}

/// Makes the tree, removes it, and returns the duration of the removal alone; finds 0 if something was left.
Outcome timed(bool (*removal)()) {
  makeTree();
  const auto start = std::chrono::steady_clock::now();
  const bool isDone = removal();
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  struct stat status {};
  const bool isGone = ::lstat(tree.c_str(), &status) != 0;
  return {isDone && isGone ? kEntries : 0.0, took.count()};
}

bool isCanaryWell() {
  std::ifstream stream(canary + "/file");
  return std::string(std::istreambuf_iterator<char>(stream), {}) == "precious";
}

}  // namespace

int main(int count, char** arguments) {
  char resolved[4096];
  if (count < 2 || ::realpath(arguments[1], resolved) == nullptr) {
    std::fprintf(stderr, "usage: %s FOLDER [ROUNDS]\n", arguments[0]);
    return 2;
  }
  const std::string top = std::string(resolved) + "/removal-bench-" + std::to_string(::getpid());
  tree = top + "/tree";
  canary = top + "/canary";
  for (const std::string& folder : {top, canary}) ::mkdir(folder.c_str(), 0700);
  std::ofstream(canary + "/file") << "precious";

  const auto onDesktop = [] { Host::install(Host::linuxDesktop({"org.example.bench", "", {}})); };
  const auto onVolume = [&top] {
    Host::install(Host::macVolume(top, "bench", {"org.example.bench", "", {}}));
  };
  std::vector<Variant> variants;
  variants.push_back({"rm -rf", [] { return timed(runTool); }});
  variants.push_back({"removeItem", [] { return timed(runOwn); }});
  variants.push_back({"clean of 10,000 folders", [&] { return runClean(onDesktop); }});
  variants.push_back({"clean of 10,000 folders of a mounted volume", [&] { return runClean(onVolume); }});
  measure(variants, count > 2 ? std::atoi(arguments[2]) : 7);
  std::printf("%.0f entries\n\n", kEntries);
  print(variants, kEntries);

  std::printf("\n");
  Verdict verdict;
  for (const Variant& variant : variants) {
    verdict.same(variant.name + " removes everything", variant.found, kEntries);
  }
  verdict.same("the canary is as it was", isCanaryWell() ? 1 : 0, 1);
  const double tool = variants[0].median();
  for (std::size_t i = 1; i < variants.size(); ++i) {
    verdict.atMost(variants[i].name + " / rm -rf", variants[i].median() / tool, 1.3);
  }
  ::unlink((canary + "/file").c_str());
  for (const std::string& folder : {canary, top}) ::rmdir(folder.c_str());
  return verdict.exitStatus();
}
