#pragma once

#include <functional>
#include <string>
#include <vector>

namespace sorrel {

/// Reports that a stage is complete, with its counts for the log.
using StageThrough = std::function<void(const std::string& counts)>;

/// One stage of a scan. `work` calls `through` once, on any thread, or not at all if it ends the scan itself.
struct ScanStage {
  std::string name;
  std::function<void(StageThrough through)> work;
};

/// Runs stages in their order, each on the thread on which the stage before it called `through`. Each leaves
/// a line in the log: the scanner, the stage, its counts; none without a name. `isOver`, which may be empty,
/// is tested before each stage; true ends the list.
void runStages(std::string scanner, std::vector<ScanStage> stages, std::function<bool()> isOver);

}  // namespace sorrel
