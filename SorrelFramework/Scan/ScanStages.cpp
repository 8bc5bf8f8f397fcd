#include "SorrelFramework/Scan/ScanStages.hpp"

#include <cstddef>
#include <memory>
#include <utility>

#include "SorrelFramework/Units/LogService.hpp"

namespace sorrel {
namespace {

class Stages : public std::enable_shared_from_this<Stages> {
 public:
  Stages(std::string scanner, std::vector<ScanStage> stages, std::function<bool()> isOver)
      : scanner_(std::move(scanner)), stages_(std::move(stages)), isOver_(std::move(isOver)) {}

  void runNext() {
    if (next_ == stages_.size() || (isOver_ && isOver_())) return;
    const ScanStage& stage = stages_[next_++];
    stage.work([self = shared_from_this(), &stage](const std::string& counts) {
      self->log(stage, counts);
      self->runNext();
    });
  }

 private:
  void log(const ScanStage& stage, const std::string& counts) const {
    if (scanner_.empty()) return;
    LogService::shard().log(LogService::LogLevel::Info, scanner_ + " " + stage.name + ": " + counts);
  }

  std::string scanner_;
  std::vector<ScanStage> stages_;
  std::function<bool()> isOver_;
  std::size_t next_ = 0;
};

}  // namespace

void runStages(std::string scanner, std::vector<ScanStage> stages, std::function<bool()> isOver) {
  std::make_shared<Stages>(std::move(scanner), std::move(stages), std::move(isOver))->runNext();
}

}  // namespace sorrel
