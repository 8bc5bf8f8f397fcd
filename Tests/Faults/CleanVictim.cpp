// Runs one clean of the ticked tree in a volume, killed at the entry of removal number POINT; with 0 it runs
// to its end. usage: CleanVictim ROOT POINT. The helper exists and refuses everything.

#include <sys/syscall.h>

#include <cstdlib>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "Tests/Faults/TickedTree.hpp"
#include "Tests/Support/ScanKit.hpp"
#include "Tests/Support/SystemCallFaults.hpp"

namespace {

using namespace sorrel;

constexpr int kWrong = 1;
constexpr int kCannotWatch = 77;

/// True if the final callback came once.
bool clean(const std::string& root) {
  const auto finish = std::make_shared<test::FinishRecord>();
  CleanService::cleanCategorys(test::tickedtree::makeRecords(root, test::makeFeature(1, {})),
                               CleanServiceType::Common, finish);
  return finish->waitUntilFinished() && finish->finishCount() == 1;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) return kWrong;
  const std::string root = arguments[1];
  Host::install(
      Host::macVolume(root, std::string(test::TemporaryVolume::kUser),
                      {std::string(test::TemporaryVolume::kBundleIdentifier), root + "/Resources", {}}));
  const test::HelperForShard helper(std::make_shared<test::ScriptedHelper>(
      test::ScriptedHelper::deleting(HelperEventErrorID::DeleteError, "refused"),
      test::ScriptedHelper::Thread::Caller));
  const test::CallFault fault{SYS_unlinkat, std::strtoull(arguments[2], nullptr, 10),
                              test::CallFault::kKilled};
  bool isRight = false;
  if (!test::runWithFault(fault, [&] { isRight = clean(root); })) return kCannotWatch;
  return isRight ? 0 : kWrong;
}
