#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Tests/Support/CleanKit.hpp"

namespace sorrel::test {

/// Files of a volume whose names encode their ticks, so that a second process, and a second clean after a
/// killed one, makes the same records of the files it finds. Below "work": a folder for each category
/// ("all-", "none-", "mixed-"), in it one for each record ("on-", "off-", "mixed-"), in it the leaves ("on-",
/// "off-", each a file, a link, a package, or one for the helper).
namespace tickedtree {

/// 2,000 leaves, and beside them items that no tick selects.
void makeFiles(const TemporaryVolume& volume);

/// Records of the current contents of the volume; folders without entries are left out, as in a scan.
std::vector<Ref<CategoryInformation>> makeRecords(const std::string& root,
                                                  const Ref<FeatureInformation>& feature);

/// True if the ticks let this process remove the item at `path`, derived from the names of a snapshot.
bool isSelected(std::string_view path);

}  // namespace tickedtree
}  // namespace sorrel::test
