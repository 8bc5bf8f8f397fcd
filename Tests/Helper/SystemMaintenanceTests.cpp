#include "Helper/SystemMaintenance.hpp"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace sorrel::helper {
namespace {

using Answer = SystemTools::Answer;
constexpr auto kSuccess = static_cast<std::int32_t>(HelperEventErrorID::Success);
constexpr auto kOverTime = static_cast<std::int32_t>(HelperEventErrorID::OverTime);
constexpr auto kNoCause = static_cast<std::int32_t>(HelperEventErrorID::NoCause);

/// Answers as the test says, by the name of the service or the program; Absent for all others.
class ScriptedTools : public SystemTools {
 public:
  explicit ScriptedTools(std::map<std::string, Answer> answers = {}) : answers_(std::move(answers)) {}

  Answer call(const BusMethod& method) override {
    return answer(method.service, std::string(method.path) + " " + method.interface + "." + method.method);
  }
  Answer run(const FixedCommand& command) override {
    std::string words = command.renewsPurpose ? "renews " : "";
    for (const char* word : command.arguments) words += word != nullptr ? std::string(word) + " " : "";
    return answer(command.purpose, words);
  }

  std::vector<std::string> asked;

 private:
  Answer answer(const std::string& name, const std::string& what) {
    asked.push_back(name + ": " + what);
    const auto found = answers_.find(name);
    return found == answers_.end() ? Answer::Absent : found->second;
  }
  std::map<std::string, Answer> answers_;
};

constexpr const char* kResolved = "org.freedesktop.resolve1";
constexpr const char* kDnsmasq = "uk.org.thekelleys.dnsmasq";
constexpr const char* kManaged = "org.freedesktop.NetworkManager.dnsmasq";
constexpr const char* kNscd = "/run/nscd/socket";
constexpr const char* kIndex = "/var/lib/plocate/plocate.db";

TEST(SystemMaintenance, everyNameCacheIsEmptied) {
  ScriptedTools tools;
  EXPECT_TRUE(cleanDNS(tools).flag);
  EXPECT_EQ(
      tools.asked,
      (std::vector<std::string>{
          "org.freedesktop.resolve1: /org/freedesktop/resolve1 org.freedesktop.resolve1.Manager.FlushCaches",
          "uk.org.thekelleys.dnsmasq: /uk/org/thekelleys/dnsmasq uk.org.thekelleys.dnsmasq.ClearCache",
          "org.freedesktop.NetworkManager.dnsmasq: /uk/org/thekelleys/dnsmasq "
          "uk.org.thekelleys.dnsmasq.ClearCache",
          "/run/nscd/socket: /usr/sbin/nscd -i hosts "}));
}

TEST(SystemMaintenance, noNameCacheAtAllIsASuccess) {
  ScriptedTools tools;
  const EventOutcome outcome = cleanDNS(tools);
  EXPECT_TRUE(outcome.flag);
  EXPECT_EQ(outcome.code, kSuccess);
}

TEST(SystemMaintenance, oneNameCacheThatFailsIsAFailureAndTheOthersAreEmptied) {
  for (const char* cache : {kResolved, kDnsmasq, kManaged, kNscd}) {
    ScriptedTools tools({{cache, Answer::Failed}});
    const EventOutcome outcome = cleanDNS(tools);
    EXPECT_FALSE(outcome.flag) << cache;
    EXPECT_EQ(outcome.code, kNoCause);
    EXPECT_EQ(tools.asked.size(), 4U);
  }
}

TEST(SystemMaintenance, aNameCacheThatDoesNotAnswerHasItsOwnCode) {
  ScriptedTools tools({{kResolved, Answer::TimedOut}, {kDnsmasq, Answer::Failed}, {kNscd, Answer::Done}});
  const EventOutcome outcome = cleanDNS(tools);
  EXPECT_FALSE(outcome.flag);
  EXPECT_EQ(outcome.code, kOverTime);
}

TEST(SystemMaintenance, theFileIndexIsBuiltByItsOwnService) {
  ScriptedTools tools({{kIndex, Answer::Done}});
  const EventOutcome outcome = rebuildFileIndex(tools);
  EXPECT_TRUE(outcome.flag);
  EXPECT_EQ(outcome.code, kSuccess);
  EXPECT_EQ(tools.asked,
            (std::vector<std::string>{"/var/lib/plocate/plocate.db: renews /usr/bin/systemctl start "
                                      "plocate-updatedb.service "}));
}

TEST(SystemMaintenance, withoutAFileIndexThereIsNothingToBuild) {
  for (const Answer answer : {Answer::Absent, Answer::Failed}) {
    ScriptedTools tools({{kIndex, answer}});
    const EventOutcome outcome = rebuildFileIndex(tools);
    EXPECT_FALSE(outcome.flag);
    EXPECT_EQ(outcome.code, kNoCause);
  }
}

}  // namespace
}  // namespace sorrel::helper
