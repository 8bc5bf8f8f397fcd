// The stand-in for mdfind, as a child process, against find(1).
// usage: FindBench MDFIND FOLDER [ROUNDS]

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Benchmarks/SideBySide.hpp"
#include "SorrelFramework/Platform/Machine/ChildProcess.hpp"
#include "SorrelFramework/Platform/Text/Text.hpp"

namespace {

using namespace sorrel::bench;
using Paths = std::set<std::string>;

Paths pathsPrintedBy(const std::string& tool, const std::vector<std::string>& arguments) {
  sorrel::ChildProcess child(tool, arguments);
  std::string output;
  child.run([&output](std::string_view piece) {
    output += piece;
    return true;
  });
  const auto lines = sorrel::componentsSeparatedBy(output, "\n");
  Paths paths(lines.begin(), lines.end());
  paths.erase("");
  return paths;
}

/// The two commands that search for the files of more than `bytes` below `folder`.
struct Question {
  std::string mdfind;
  std::string folder;
  std::string bytes;

  [[nodiscard]] Paths ask() const {
    return pathsPrintedBy(mdfind, {"-onlyin", folder, "kMDItemFSSize > " + bytes});
  }
  /// Like the index: no hidden folders, no other file systems.
  [[nodiscard]] Paths askFind() const {
    return pathsPrintedBy("/usr/bin/find", {folder, "-xdev", "-type", "d", "-name", ".?*", "-prune", "-o",
                                            "-type", "f", "-size", "+" + bytes + "c", "-print"});
  }
};

}  // namespace

int main(int count, char** arguments) {
  if (count < 3) {
    std::fprintf(stderr, "usage: %s MDFIND FOLDER [ROUNDS]\n", arguments[0]);
    return 2;
  }
  const std::string mdfind = std::filesystem::canonical(arguments[1]).string();
  const std::string folder = std::filesystem::canonical(arguments[2]).string();
  const Question large{mdfind, folder, "52428800"};
  const Question many{mdfind, folder, "1000"};

  std::vector<Variant> variants;
  const auto add = [&variants](const char* name, const std::function<Paths()>& ask) {
    variants.push_back({name, [ask] { return Outcome(static_cast<double>(ask().size())); }});
  };
  add("find, large files", [&] { return large.askFind(); });
  add("mdfind, large files", [&] { return large.ask(); });
  add("find, many files", [&] { return many.askFind(); });
  add("mdfind, many files", [&] { return many.ask(); });
  measure(variants, count > 3 ? std::atoi(arguments[3]) : 7);
  const auto entries = pathsPrintedBy("/usr/bin/find", {folder, "-xdev"}).size();
  std::printf("%zu entries\n\n", entries);
  print(variants, static_cast<double>(entries));

  std::printf("\n");
  Verdict verdict;
  verdict.same("both name the same large files", static_cast<double>(large.ask() == large.askFind()), 1);
  verdict.same("both name the same many files", static_cast<double>(many.ask() == many.askFind()), 1);
  verdict.atMost("mdfind / find, large files", variants[1].median() / variants[0].median(), 1.0);
  verdict.atMost("mdfind / find, many files", variants[3].median() / variants[2].median(), 1.2);
  return verdict.exitStatus();
}
