// Removal of a large folder, against rm(1).
// usage: RemovalBench FOLDER [ROUNDS]; the trees are made in FOLDER. One on a memory file system shows the
// programs' own cost best: on a disk, most of the time is the file system's.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "Benchmarks/SideBySide.hpp"
#include "SorrelFramework/Native/TreeRemoval.hpp"

namespace {

using namespace sorrel::bench;

constexpr int kFolders = 10'000;
constexpr int kFilesInEach = 10;
constexpr int kFoldersInOne = 100;
constexpr double kEntries = kFolders * (kFilesInEach + 1) + kFolders / kFoldersInOne + 1;

std::string tree;

void makeTree() {
  ::mkdir(tree.c_str(), 0700);
  for (int i = 0; i < kFolders; ++i) {
    const std::string above = tree + '/' + std::to_string(i / kFoldersInOne);
    const std::string folder = above + '/' + std::to_string(i);
    if (i % kFoldersInOne == 0) ::mkdir(above.c_str(), 0700);
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
  const sorrel::RemovalPolicy policy = sorrel::RemovalPolicy::forUser();
  return sorrel::removeItem(tree, policy).removedEntries == static_cast<std::uint64_t>(kEntries);
}

/// Makes the tree, removes it, and tells how long the removal alone took; finds 0 if something was left.
Outcome timed(bool (*removal)()) {
  makeTree();
  const auto start = std::chrono::steady_clock::now();
  const bool isDone = removal();
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  struct stat status {};
  const bool isGone = ::lstat(tree.c_str(), &status) != 0;
  return {isDone && isGone ? kEntries : 0.0, took.count()};
}

}  // namespace

int main(int count, char** arguments) {
  char resolved[4096];
  if (count < 2 || ::realpath(arguments[1], resolved) == nullptr) {
    std::fprintf(stderr, "usage: %s FOLDER [ROUNDS]\n", arguments[0]);
    return 2;
  }
  tree = std::string(resolved) + "/removal-bench-" + std::to_string(::getpid());

  std::vector<Variant> variants;
  variants.push_back({"rm -rf", [] { return timed(runTool); }});
  variants.push_back({"removeItem", [] { return timed(runOwn); }});
  measure(variants, count > 2 ? std::atoi(arguments[2]) : 7);
  std::printf("%.0f entries\n\n", kEntries);
  print(variants, kEntries);

  std::printf("\n");
  Verdict verdict;
  verdict.same("rm -rf removes everything", variants[0].found, kEntries);
  verdict.same("removeItem removes everything", variants[1].found, kEntries);
  verdict.atMost("removeItem / rm -rf", variants[1].median() / variants[0].median(), 1.3);
  return verdict.exitStatus();
}
