#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Tests/Support/CleanKit.hpp"

namespace sorrel::test {

/// Files of a volume whose names say how they are ticked, so that a second process, and a second clean after
/// one that was killed, makes the same records of what it finds there. Below "work": a folder for each
/// category ("all-", "none-", "mixed-"), in it one for each record ("on-", "off-", "mixed-"), in it the
/// leaves ("on-", "off-", each a file, a link, a package, or one for the helper).
namespace tickedtree {

/// 2,000 leaves, and beside them what no tick selects.
void makeFiles(const TemporaryVolume& volume);

/// Records of what is in the volume now; folders without entries are left out, as a scan does.
std::vector<Ref<CategoryInformation>> makeRecords(const std::string& root,
                                                  const Ref<FeatureInformation>& feature);

/// Whether the ticks let this process remove the item at `path`, told from the names of a snapshot.
bool isSelected(std::string_view path);

}  // namespace tickedtree
}  // namespace sorrel::test
