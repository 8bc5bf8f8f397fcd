#include "SorrelFramework/Selection/RecordWalk.hpp"

#include <cstddef>
#include <vector>

namespace sorrel {

Integer sumOfLeaves(FileInformation& record, const std::function<Integer(FileInformation& leaf)>& ofLeaf,
                    const std::function<void(FileInformation& parent, Integer sum)>& atParent) {
  if (record.childrens.empty()) return ofLeaf(record);

  struct Frame {
    FileInformation* parent;
    std::size_t next = 0;
    Integer sum = 0;
  };
  std::vector<Frame> path{{&record}};
  for (;;) {
    Frame& frame = path.back();
    if (frame.next < frame.parent->childrens.size()) {
      FileInformation& child = frame.parent->childrens[frame.next++];
      if (child.childrens.empty()) {
        frame.sum += ofLeaf(child);
      } else {
        path.push_back({&child});
      }
      continue;
    }
    const Frame done = frame;
    path.pop_back();
    if (atParent) atParent(*done.parent, done.sum);
    if (path.empty()) return done.sum;
    path.back().sum += done.sum;
  }
}

}  // namespace sorrel
