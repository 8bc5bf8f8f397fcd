#include "SorrelFramework/Removal/LookupError.hpp"

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace sorrel {
namespace {

constexpr int kMissing[] = {ENOENT, ENOTDIR, ELOOP, ENAMETOOLONG};
constexpr int kOutOfReach[] = {EACCES,    EPERM,        ENXIO,     ENODEV, ENOTCONN,
                               EHOSTDOWN, EHOSTUNREACH, ETIMEDOUT, ESTALE};

}  // namespace

bool tellsOfNoPlace(int error) noexcept {
  return std::ranges::find(kMissing, error) != std::end(kMissing) || tellsOfPlaceOutOfReach(error);
}

bool tellsOfPlaceOutOfReach(int error) noexcept {
  return std::ranges::find(kOutOfReach, error) != std::end(kOutOfReach);
}

}  // namespace sorrel
