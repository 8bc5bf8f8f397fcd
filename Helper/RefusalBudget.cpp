#include "Helper/RefusalBudget.hpp"

namespace sorrel::helper {

bool RefusalBudget::take(std::uint32_t uid, std::size_t bytes) {
  std::size_t& taken = taken_[uid];
  if (bytes > kOfUser - taken) return false;
  taken += bytes;
  return true;
}

}  // namespace sorrel::helper
