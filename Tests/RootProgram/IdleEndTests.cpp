// Events that are sent while the root program ends for lack of work. SORREL_IDLE_ENDS sets their number.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <set>

#include "Tests/Helper/HelperServiceKit.hpp"
#include "Tests/Support/NumberFrom.hpp"

namespace sorrel::helper {
namespace {

using namespace test;

using IdleEnd = HelperServiceKit;

TEST_F(IdleEnd, losesNoEvent) {
  const std::uint64_t events = numberFrom("SORREL_IDLE_ENDS", 20);
  startScripted(ScriptedPolkit::Mode::Yes, "idle-seconds = 0\n");
  const auto held = helper();
  std::set<std::string> helpers;
  std::uint64_t answered = 0;
  for (std::uint64_t i = 0; i < events; ++i) {
    const Answer answer = take(send(*held, kDelete, kNowhere));
    const bool isDone =
        answer.isThere && answer.dictionary.size() == 1 &&
        *answer.dictionary.begin()->second.asDictionary()->at("DeleteDesc").asText() != "Nothing was done.";
    answered += isDone ? 1 : 0;
    ASSERT_TRUE(isDone) << i << machine->log().substr(machine->log().size() - 2000);
    helpers.insert(machine->polkit().questions().back().sender);
  }
  EXPECT_EQ(answered, events);
  EXPECT_EQ(*lost, 0);
  EXPECT_GT(helpers.size(), events / 10) << "they hardly ended in between";
  std::cout << events << " events, " << helpers.size() << " helpers\n";
}

}  // namespace
}  // namespace sorrel::helper
