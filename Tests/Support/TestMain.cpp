// The main function of every test program. The tests see a temporary folder of the program's own. If tests
// skip for lack of permissions, the program runs them once more as root of its own namespaces
// (Tests/Support/as-root).

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <TestPlaces.hpp>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Tests/Support/TreeRemoval.hpp"

namespace sorrel::test {
namespace {

/// Prefix of the names of temporary folders of test programs.
constexpr std::string_view kRunFolder = "sorrel-run-";

/// Exit status of as-root if the kernel refuses.
constexpr int kRefused = 77;

std::vector<std::string> skippedTests() {
  std::vector<std::string> names;
  const testing::UnitTest& program = *testing::UnitTest::GetInstance();
  for (int i = 0; i < program.total_test_suite_count(); ++i) {
    const testing::TestSuite& suite = *program.GetTestSuite(i);
    for (int j = 0; j < suite.total_test_count(); ++j) {
      const testing::TestInfo& test = *suite.GetTestInfo(j);
      if (test.should_run() && test.result()->Skipped()) {
        names.push_back(std::string(suite.name()) + '.' + test.name());
      }
    }
  }
  return names;
}

/// The exit status of this program, run with the same arguments on these tests only.
int runAsRoot(std::vector<std::string> words, const std::vector<std::string>& names) {
  std::string filter = "--gtest_filter=";
  for (const std::string& name : names) filter += name + ':';
  words[0] = std::filesystem::read_symlink("/proc/self/exe").string();
  words.insert(words.begin(), SORREL_SOURCE_DIR "/Tests/Support/as-root");
  words.push_back(filter);
  const pid_t child = ::fork();
  if (child == 0) {
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    ::execv(arguments[0], arguments.data());
    ::_exit(kRefused);
  }
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status)) return EXIT_FAILURE;
  return WEXITSTATUS(status);
}

/// The usual printer of a first attempt. CTest treats a program that prints "[  SKIPPED ]" as skipped,
/// regardless of the second attempt.
class FirstAttempt : public testing::EmptyTestEventListener {
 public:
  explicit FirstAttempt(testing::TestEventListener* printer) : printer_(printer) {}

  void OnTestIterationStart(const testing::UnitTest& program, int iteration) override {
    printer_->OnTestIterationStart(program, iteration);
  }
  void OnTestStart(const testing::TestInfo& test) override { printer_->OnTestStart(test); }
  void OnTestPartResult(const testing::TestPartResult& result) override {
    printer_->OnTestPartResult(result);
  }
  void OnTestEnd(const testing::TestInfo& test) override {
    if (!test.result()->Skipped()) printer_->OnTestEnd(test);
  }
  void OnTestIterationEnd(const testing::UnitTest& program, int iteration) override {
    if (program.skipped_test_count() == 0) printer_->OnTestIterationEnd(program, iteration);
  }

 private:
  const std::unique_ptr<testing::TestEventListener> printer_;
};

int runTests(const std::vector<std::string>& words) {
  if (::geteuid() == 0) return RUN_ALL_TESTS();
  testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
  listeners.Append(new FirstAttempt(listeners.Release(listeners.default_result_printer())));
  const int status = RUN_ALL_TESTS();
  const std::vector<std::string> skipped = skippedTests();
  if (skipped.empty()) return status;
  std::cout << testing::UnitTest::GetInstance()->successful_test_count() << " tests passed, "
            << testing::UnitTest::GetInstance()->failed_test_count()
            << " failed; once more as root: " << skipped.size() << " skipped\n"
            << std::flush;
  const int again = runAsRoot(words, skipped);
  if (again != kRefused) return status | again;
  std::cout << "The kernel refuses a user namespace\n";
  if (status == 0) std::cout << "[  SKIPPED ] " << skipped.size() << " tests\n";
  return status;
}

/// A folder for all temporary items: folders of children that end without destructors stay in it.
std::string makeRunFolder() {
  std::string folder = std::filesystem::canonical(std::filesystem::temp_directory_path()) /
                       (std::string(kRunFolder) + "XXXXXX");
  if (::mkdtemp(folder.data()) == nullptr) return "";
  ::chmod(folder.c_str(), S_ISVTX | S_IRWXU | S_IRWXG | S_IRWXO);  // as /tmp is
  ::setenv("TMPDIR", folder.c_str(), 1);
  return folder;
}

/// False if it contains an item that no test program made.
bool removeRunFolder(const std::string& folder) {
  std::vector<std::filesystem::directory_entry> items;
  for (const auto& item : std::filesystem::directory_iterator(folder)) items.push_back(item);
  for (const auto& item : items) {
    // A child that ran this program again, for a death test, leaves its own run folder.
    const bool isRunFolder = std::filesystem::is_directory(item.symlink_status()) &&
                             item.path().filename().string().starts_with(kRunFolder);
    isRunFolder ? removeRunFolder(item.path()) : removeTree(item.path());
  }
  return ::rmdir(folder.c_str()) == 0;
}

}  // namespace
}  // namespace sorrel::test

int main(int count, char** arguments) {
  const std::vector<std::string> words(arguments, arguments + count);
  testing::InitGoogleTest(&count, arguments);
  if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
  const std::string folder = sorrel::test::makeRunFolder();
  if (folder.empty()) return EXIT_FAILURE;
  const int status = sorrel::test::runTests(words);
  if (sorrel::test::removeRunFolder(folder)) return status;
  std::cerr << "Something is left in the temporary folder " << folder << '\n';
  return EXIT_FAILURE;
}
