// Any bytes as a module catalogue: they give a whole tree, or one of the documented fatal stops.
#include <sanitizer/common_interface_defs.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Fuzz/Require.hpp"
#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/ModuleInfo.hpp"
#include "SorrelFramework/Platform/Base/Fatal.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"

using namespace sorrel;
using sorrel::fuzz::require;

namespace {

struct Stopped {};

/// A file without a name.
class MemoryFile {
 public:
  explicit MemoryFile(std::string_view bytes = {}) : fd_(::memfd_create("catalogue", MFD_CLOEXEC)) {
    require(fd_ >= 0 && ::write(fd_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
            "the input fits into memory");
  }
  ~MemoryFile() { ::close(fd_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  [[nodiscard]] int descriptor() const { return fd_; }
  [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }
  [[nodiscard]] std::string head() const {
    std::string text(256, '\0');
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(0, ::pread(fd_, text.data(), text.size(), 0))));
    return text;
  }

 private:
  int fd_;
};

/// While it lives, standard error goes to a file of its own. The reports of the sanitizers do not: see
/// LLVMFuzzerInitialize().
class CaughtErrors {
 public:
  CaughtErrors() : errors_(::dup(STDERR_FILENO)) { ::dup2(caught_.descriptor(), STDERR_FILENO); }
  ~CaughtErrors() {
    ::dup2(errors_, STDERR_FILENO);
    ::close(errors_);
  }
  CaughtErrors(const CaughtErrors&) = delete;
  CaughtErrors& operator=(const CaughtErrors&) = delete;

  [[nodiscard]] std::string text() const { return caught_.head(); }

 private:
  MemoryFile caught_;
  int errors_;
};

void checkStop(std::string_view text) {
  require(text.starts_with(kUnexpectedNil) || text.starts_with("Could not cast value of key \""),
          "a stop says why");
}

void checkCategory(CategoryInformation& category, const FeatureInformation& feature, Integer level) {
  require(category.featureInfo.get() == &feature, "a category knows its feature");
  require(category.levelInt == level, "the level is that of the row");
  require(fromRawValue<CategoryInfomationKind>(category.kind).has_value(), "the kind is a case");
  require(category.hashValueString.size() == 32, "the identity is a digest");
  require(category.childrens.empty(), "a catalogue holds no file records");
  for (const URL& url : category.urls) {
    require(url.absoluteString().find("file://~/") == std::string::npos, "no tilde is left");
  }
  if (!category.childrenCateogry) return;
  for (CategoryInformation& sub : *category.childrenCateogry) checkCategory(sub, feature, level + 1);
}

template <class Records>
void checkOrder(const Records& records) {
  require(std::is_sorted(records.begin(), records.end(),
                         [](const auto& a, const auto& b) { return a.finderID < b.finderID; }),
          "rows come by their number");
}

void checkModule(const ModuleInformation& module) {
  for (const FeatureInformation& feature : module.featureInfo) {
    require(feature.moduleInfo.get() == &module, "a feature knows its module");
    checkOrder(feature.categoryInfo);
    for (const Ref<CategoryInformation>& category : feature.categoryInfo.refs()) {
      checkCategory(*category, feature, 0);
    }
  }
}

/// The first existing category.
Ref<CategoryInformation> firstCategory(const std::vector<Ref<ModuleInformation>>& modules) {
  for (const Ref<ModuleInformation>& module : modules) {
    for (const FeatureInformation& feature : module->featureInfo) {
      if (!feature.categoryInfo.empty()) return feature.categoryInfo.ref(0);
    }
  }
  return {};
}

void checkTree(std::vector<Ref<ModuleInformation>> modules) {
  require(std::is_sorted(modules.begin(), modules.end(),
                         [](const auto& a, const auto& b) { return a->finderID < b->finderID; }),
          "modules come by their number");
  for (const Ref<ModuleInformation>& module : modules) checkModule(*module);

  const Ref<CategoryInformation> kept = firstCategory(modules);
  modules.clear();
  if (kept) checkModule(*kept->featureInfo->moduleInfo);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const std::intptr_t reports = ::dup(STDERR_FILENO);
  __sanitizer_set_report_fd(reinterpret_cast<void*>(reports));
  Host::install(Host::macVolume("/nonexistent", "alice", {"com.example.fuzz", "/nonexistent", {}}));
  setFatalHandler([] { throw Stopped(); });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const MemoryFile file(fuzz::textOf(data, size));
  std::vector<Ref<ModuleInformation>> modules;
  std::string reason;
  {
    const CaughtErrors errors;
    try {
      modules = ModuleInformation::getModule(file.path());
    } catch (const Stopped&) {
      reason = errors.text();
      if (reason.empty()) reason = "nothing";
    }
  }
  if (reason.empty()) {
    checkTree(std::move(modules));
  } else {
    checkStop(reason);
  }
  return 0;
}
