#include "SorrelFramework/Scan/UnreadFolders.hpp"

#include <map>
#include <mutex>

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

}  // namespace

void UnreadFolders::add(std::int64_t finderID, const std::string& path, int error) {
  const std::lock_guard lock(reports().mutex);
  Report& report = reports().byFeature[finderID];
  ++report.count;
  if (report.first.size() < kMostNamed) report.first.push_back({path, error});
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

}  // namespace sorrel
