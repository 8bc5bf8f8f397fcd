#include "SorrelFramework/Scan/UnreadFolders.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <map>
#include <mutex>
#include <optional>
#include <system_error>

namespace sorrel {
namespace {

struct Reports {
  std::mutex mutex;
  std::map<std::int64_t, UnreadFolders::Report> byFeature;
};

/// Never destroyed: walks may go on while the process ends.
Reports& reports() {
  static Reports& reports = *new Reports;
  return reports;
}

/// Removes the bytes before the next NUL from the text and returns them.
std::optional<std::string_view> takeField(std::string_view& text) {
  const std::size_t end = text.find('\0');
  if (end == std::string_view::npos) return std::nullopt;
  const std::string_view field = text.substr(0, end);
  text.remove_prefix(end + 1);
  return field;
}

template <class Number>
bool takeNumber(std::string_view& text, Number& number) {
  const auto field = takeField(text);
  if (!field) return false;
  const auto [end, error] = std::from_chars(field->data(), field->data() + field->size(), number);
  return error == std::errc() && end == field->data() + field->size() && number >= 0;
}

void appendFirst(std::vector<UnreadFolders::Folder>& list, const std::vector<UnreadFolders::Folder>& more) {
  for (const UnreadFolders::Folder& one : more) {
    if (list.size() < UnreadFolders::kMostNamed) list.push_back(one);
  }
}

}  // namespace

bool UnreadFolders::isReason(int error) {
  return error != 0 && error != EXDEV && error != ENOENT && error != ENOTDIR && error != ELOOP;
}

void UnreadFolders::add(std::int64_t finderID, const std::string& path, int error) {
  const std::lock_guard lock(reports().mutex);
  Report& report = reports().byFeature[finderID];
  ++report.count;
  if (report.first.size() < kMostNamed) report.first.push_back({path, error});
}

void UnreadFolders::addFile(std::int64_t finderID, const std::string& path, int error) {
  const std::lock_guard lock(reports().mutex);
  Report& report = reports().byFeature[finderID];
  ++report.fileCount;
  if (report.firstFiles.size() < kMostNamed) report.firstFiles.push_back({path, error});
}

void UnreadFolders::add(std::int64_t finderID, const Report& report) {
  const std::lock_guard lock(reports().mutex);
  Report& sum = reports().byFeature[finderID];
  sum.count += report.count;
  sum.fileCount += report.fileCount;
  appendFirst(sum.first, report.first);
  appendFirst(sum.firstFiles, report.firstFiles);
}

UnreadFolders::Report UnreadFolders::of(std::int64_t finderID) {
  const std::lock_guard lock(reports().mutex);
  const auto found = reports().byFeature.find(finderID);
  return found != reports().byFeature.end() ? found->second : Report();
}

void UnreadFolders::clear(std::int64_t finderID) {
  const std::lock_guard lock(reports().mutex);
  reports().byFeature.erase(finderID);
}

UnreadFolderHandler UnreadFolders::handler(std::int64_t finderID) {
  return [finderID](const std::string& path, int error) { add(finderID, path, error); };
}

// The count, then an errno and a path for each folder; each followed by a NUL, as no path contains one.
std::string UnreadFolders::textOf(const Report& report) {
  std::string text = std::to_string(report.count) + '\0';
  for (const Folder& folder : report.first)
    text.append(std::to_string(folder.error)).append(1, '\0').append(folder.path).append(1, '\0');
  return text;
}

UnreadFolders::Report UnreadFolders::fromText(std::string_view text) {
  Report report;
  std::int64_t count = 0;
  if (!takeNumber(text, count)) return report;
  for (Folder folder; report.first.size() < kMostNamed && takeNumber(text, folder.error);) {
    const auto path = takeField(text);
    if (!path || path->empty()) break;
    folder.path = *path;
    report.first.push_back(folder);
  }
  report.count = std::max(count, static_cast<std::int64_t>(report.first.size()));
  return report;
}

}  // namespace sorrel
