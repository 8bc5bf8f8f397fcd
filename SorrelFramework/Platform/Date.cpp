#include "SorrelFramework/Platform/Date.hpp"

#include <ctime>

namespace sorrel {

Date Date::now() {
  timespec moment{};
  ::clock_gettime(CLOCK_REALTIME, &moment);
  return {static_cast<double>(moment.tv_sec) + static_cast<double>(moment.tv_nsec) * 1e-9};
}

}  // namespace sorrel
