#include "SorrelFramework/Units/StreamFileHash.hpp"

namespace sorrel {

StreamFileHashUnit& StreamFileHashUnit::shard() {
  static StreamFileHashUnit unit;
  return unit;
}

}  // namespace sorrel
