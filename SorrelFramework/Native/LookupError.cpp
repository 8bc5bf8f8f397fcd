#include "SorrelFramework/Native/LookupError.hpp"

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace sorrel {
namespace {

constexpr int kAnswers[] = {ENOENT, ENOTDIR,  ELOOP,     ENAMETOOLONG, EACCES,    EPERM, ENXIO,
                            ENODEV, ENOTCONN, EHOSTDOWN, EHOSTUNREACH, ETIMEDOUT, ESTALE};

}  // namespace

bool tellsOfNoPlace(int error) noexcept {
  return std::find(std::begin(kAnswers), std::end(kAnswers), error) != std::end(kAnswers);
}

}  // namespace sorrel
