#include "SorrelFramework/Clean/HelperSource.hpp"

#include <mutex>

namespace sorrel {
namespace {

struct Slot {
  std::mutex mutex;
  HelperSource source;
};

Slot& slot() {
  static Slot& only = *new Slot();  // a clean may outlive the end of main()
  return only;
}

}  // namespace

HelperAnswer getHelper(const std::string& machServiceName) {
  HelperSource source;
  {
    const std::lock_guard lock(slot().mutex);
    source = slot().source;
  }
  return source ? source(machServiceName) : HelperAnswer();
}

void setHelperSourceForTesting(HelperSource source) {
  const std::lock_guard lock(slot().mutex);
  slot().source = std::move(source);
}

}  // namespace sorrel
