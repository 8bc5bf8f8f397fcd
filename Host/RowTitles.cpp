#include "Host/RowTitles.hpp"

#include <algorithm>
#include <array>
#include <cstddef>

#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Model/RecordName.hpp"
#include "SorrelFramework/Selection/RecordHolders.hpp"

namespace sorrel::cli {
namespace {

constexpr std::size_t kShortestWord = 3;

/// Names that programs of all kinds give to their files and folders, and common extensions; sorted.
constexpr auto kVagueWords = std::to_array<std::string_view>(
    {"bin",      "blob",    "blobs",   "cache", "cached",  "caches", "content", "contents", "dat",  "data",
     "database", "default", "entries", "file",  "files",   "gif",    "idx",     "index",    "item", "items",
     "jpeg",     "jpg",     "json",    "log",   "logs",    "main",   "new",     "objects",  "old",  "other",
     "pack",     "packs",   "part",    "png",   "shared",  "sqlite", "storage", "store",    "temp", "test",
     "thumbs",   "tmp",     "txt",     "user",  "version", "webp",   "xml"});
static_assert(std::ranges::is_sorted(kVagueWords));

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// Bytes of other alphabets count as letters.
bool isLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || static_cast<unsigned char>(c) >= 0x80U;
}

char small(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

bool isVague(std::string_view title) {
  const bool hasDigits = std::ranges::any_of(title, isDigit);
  for (std::size_t at = 0; at < title.size();) {
    std::string word;
    bool isASCII = true;
    for (; at < title.size() && isLetter(title[at]); ++at) {
      word += small(title[at]);
      isASCII = isASCII && static_cast<unsigned char>(title[at]) < 0x80U;
    }
    // A name in another alphabet may be a single character.
    if (!isASCII) return false;
    const bool isHexadecimal = hasDigits && word.find_first_not_of("abcdef") == std::string::npos;
    if (word.size() >= kShortestWord && !isHexadecimal && !std::ranges::binary_search(kVagueWords, word))
      return false;
    if (at < title.size() && !isLetter(title[at])) ++at;
  }
  return true;
}

RowTitles::RowTitles(const FeatureInformation& feature) {
  for (const CategoryInformation* const holder : recordHolders(feature)) count(holder->childrens);
}

void RowTitles::count(const Children<FileInformation>& records) {
  for (const FileInformation& record : records) {
    ++counts_[record.title];
    count(record.childrens);
  }
}

std::string RowTitles::of(const FileInformation& record) const {
  const auto known = counts_.find(record.title);
  const bool isShared = known != counts_.end() && known->second > 1;
  if (!isShared && !isVague(record.title)) return record.title;
  const std::string path = pathOf(record.url);
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return record.title;
  return record.title + "  (in " + path.substr(0, std::max<std::size_t>(slash, 1)) + ")";
}

}  // namespace sorrel::cli
