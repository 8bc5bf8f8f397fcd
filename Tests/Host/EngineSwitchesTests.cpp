#include "Host/EngineSwitches.hpp"

#include <gtest/gtest.h>
#include <TestPlaces.hpp>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "Host/CommandLine.hpp"
#include "Tests/Host/HostKit.hpp"

namespace sorrel::hosttests {
namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

/// "Class::member" for each static bool that a class of the header declares.
Names switchesDeclaredIn(const std::string& header) {
  static const std::regex classLine(R"(^(class|struct) (\w+)[^;]*$)");
  static const std::regex switchLine(
      R"(^\s*(inline static|static inline|static) (std::atomic<bool>|std::atomic_bool|bool&?) (\w+)\s*(=.*|\{.*)?;.*$)");
  Names names;
  std::string owner;
  std::istringstream lines(header);
  for (std::string line; std::getline(lines, line);) {
    std::smatch match;
    if (std::regex_match(line, match, classLine)) owner = match[2];
    if (std::regex_match(line, match, switchLine)) names.push_back(owner + "::" + match[3].str());
  }
  return names;
}

Names switchesOfTheLibrary() {
  Names names;
  for (const auto& entry : fs::recursive_directory_iterator(SORREL_SOURCE_DIR "/SorrelFramework")) {
    if (entry.path().extension() != ".hpp") continue;
    std::ranges::copy(switchesDeclaredIn(contentOf(entry.path().string())), std::back_inserter(names));
  }
  std::ranges::sort(names);
  return names;
}

Names namesOfTheTable() {
  Names names;
  for (const cli::EngineSwitch& one : cli::engineSwitches()) names.emplace_back(one.name);
  return names;
}

/// Restores all switches.
class EngineSwitches : public testing::Test {
 protected:
  EngineSwitches() {
    for (const cli::EngineSwitch& one : cli::engineSwitches()) before_.push_back(*one.value);
  }
  ~EngineSwitches() override {
    for (std::size_t i = 0; i < before_.size(); ++i) *cli::engineSwitches()[i].value = before_[i];
  }
  static std::size_t countOn() {
    return static_cast<std::size_t>(
        std::ranges::count_if(cli::engineSwitches(), [](const auto& one) { return *one.value; }));
  }

 private:
  std::vector<bool> before_;
};

TEST_F(EngineSwitches, declarationsAreFoundInAHeader) {
  EXPECT_EQ(switchesDeclaredIn("class One : public Two {\n public:\n  static bool first;  ///< on or off\n"
                               "  static inline std::atomic<bool> second{false};\n  static bool third();\n"
                               "  static constexpr bool fourth = true;\n};\n"),
            (Names{"One::first", "One::second"}));
}

TEST_F(EngineSwitches, everySwitchOfTheLibraryIsInTheTable) {
  EXPECT_FALSE(namesOfTheTable().empty());
  EXPECT_EQ(namesOfTheTable(), switchesOfTheLibrary());
}

TEST_F(EngineSwitches, libraryHasThemOff) { EXPECT_EQ(countOn(), 0U); }

TEST_F(EngineSwitches, programTurnsOnEachOfThem) {
  cli::setEngineSwitches({});
  EXPECT_EQ(countOn(), cli::engineSwitches().size());
}

TEST_F(EngineSwitches, optionLeavesEachOfThemAsItIs) {
  cli::GlobalOptions options;
  options.engineDefaults = true;
  cli::setEngineSwitches(options);
  EXPECT_EQ(countOn(), 0U);
}

TEST_F(EngineSwitches, eachOfThemIsDescribedInTheCautions) {
  const std::string page = contentOf(SORREL_SOURCE_DIR "/docs/cautions.md");
  for (const cli::EngineSwitch& one : cli::engineSwitches()) {
    EXPECT_NE(page.find("\n| `" + std::string(one.name) + "` | off |"), std::string::npos) << one.name;
  }
}

}  // namespace
}  // namespace sorrel::hosttests
