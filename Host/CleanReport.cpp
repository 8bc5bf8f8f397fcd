#include "Host/CleanReport.hpp"

#include <algorithm>
#include <iomanip>
#include <optional>
#include <ostream>

#include "Host/SafeText.hpp"
#include "SorrelFramework/Clean/FileRemover.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Model/RecordName.hpp"
#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Text/SizeText.hpp"
#include "SorrelFramework/Selection/Ticks.hpp"

namespace sorrel::cli {
namespace {

constexpr int kSizeColumn = 11;  // "1023.9 KiB" and a blank

std::string whyNot(const FileInformation& leaf, bool isLeft) {
  if (!isLeft) return "There is no such item any more.";
  if (!leaf.deleteErrorDesc.empty()) return leaf.deleteErrorDesc;
  return leaf.canDelete ? "It couldn’t be removed." : "Only the privileged helper may remove it.";
}

void writeItem(std::ostream& out, const CleanItem& item) {
  out << std::setw(kSizeColumn) << std::right << sizeText(item.size) << "  " << printable(item.name) << '\n';
}

void writeKept(std::ostream& out, const CleanItem& item) {
  writeItem(out, item);
  out << std::string(kSizeColumn + 2, ' ') << printable(item.why) << '\n';
}

auto sortedItems(const std::vector<CleanItem>& items, RowOrder order) {
  return sortedRows(items, order, [](const CleanItem& item) -> const std::string& { return item.name; });
}

std::string count(std::size_t number) { return std::to_string(number) + (number == 1 ? " item" : " items"); }

}  // namespace

std::vector<CleanItem> cleanItems(const FileRecords& records) {
  std::vector<CleanItem> items;
  std::optional<FileRemover::Session> removal;  // made only if something is left
  for (const Ref<FileInformation>& leaf : leavesOf(records)) {
    const bool isGone = leaf->deleteStatus == rawValue(DeleteStatus::DeleteSuccess);
    const std::string path = pathOf(leaf->url);
    const bool isLeft = !isGone && (path.empty() || statusOf(path).has_value());
    if (isLeft && !removal) removal = FileRemover::shard().begin();
    const bool isRefused = isLeft && removal->refusal(leaf->url) != 0;
    items.push_back(
        {nameOf(*leaf), leaf->size, isGone, isLeft, isRefused, isGone ? "" : whyNot(*leaf, isLeft)});
  }
  return items;
}

void writePlan(std::ostream& out, const std::vector<CleanItem>& items, RowOrder order) {
  std::int64_t sum = 0;
  const auto sorted = sortedItems(items, order);
  const auto kept = static_cast<std::size_t>(std::ranges::count_if(items, &CleanItem::isKept));
  const std::size_t going = items.size() - kept;
  if (going > 0) out << "Would remove:\n";
  for (const CleanItem* const item : sorted) {
    if (item->isKept) continue;
    writeItem(out, *item);
    sum = checkedAdd(sum, item->size);
  }
  if (kept > 0) out << "Would stay:\n";
  for (const CleanItem* const item : sorted) {
    if (item->isKept) writeKept(out, *item);
  }
  out << count(going) << ", " << sizeText(sum) << " would go; nothing was removed\n";
}

void writeCleaned(std::ostream& out, const std::vector<CleanItem>& items, std::int64_t freed,
                  RowOrder order) {
  const auto gone = static_cast<std::size_t>(std::ranges::count_if(items, &CleanItem::isGone));
  const std::size_t left = items.size() - gone;
  const auto sorted = sortedItems(items, order);
  if (gone > 0) out << "Removed:\n";
  for (const CleanItem* const item : sorted) {
    if (item->isGone) writeItem(out, *item);
  }
  if (left > 0) out << "Not removed:\n";
  for (const CleanItem* const item : sorted) {
    if (!item->isGone) writeKept(out, *item);
  }
  out << count(gone) << " removed, " << sizeText(freed) << " freed";
  if (left > 0) out << "; " << count(left) << " not removed";
  out << '\n';
}

}  // namespace sorrel::cli
