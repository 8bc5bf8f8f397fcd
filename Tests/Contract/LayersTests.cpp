// The folder tree is the architecture: these tests read every #include of the framework and of the
// command-line program and compare them with the tables below.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Tests/Contract/Includes.hpp"

namespace sorrel {
namespace {

using test::Include;
using test::includesOf;
using test::kFramework;
using test::sourcesBelow;

namespace fs = std::filesystem;

/// A folder of the framework and those that it may include besides itself; "Platform" means each room of
/// Platform/.
struct Room {
  std::string_view folder;
  std::vector<std::string_view> mayInclude;
  bool knowsTheSystem = false;  // its sources may include headers of the operating system
};

const std::vector<Room> kRooms = {
    {"Platform/Base", {}, true},
    {"Platform/Digest", {"Platform/Base"}},
    {"Platform/Text", {"Platform/Base"}, true},
    {"Platform/Queues", {"Platform/Base"}, true},
    {"Platform/Files", {"Platform/Base", "Platform/Digest", "Platform/Text"}, true},
    {"Platform/PropertyLists", {"Platform/Base", "Platform/Text", "Platform/Files"}},
    {"Platform/Machine",
     {"Platform/Base", "Platform/Text", "Platform/Queues", "Platform/Files", "Platform/PropertyLists"},
     true},
    {"Platform/Items",
     {"Platform/Base", "Platform/Text", "Platform/Queues", "Platform/Files", "Platform/PropertyLists",
      "Platform/Machine"},
     true},
    {"Extension", {"Platform"}},
    {"Removal", {"Platform/Base", "Platform/Files"}, true},
    {"Native", {"Extension", "Platform"}},
    {"Units", {"Native", "Extension", "Platform"}, true},
    {"Model", {"Units", "Native", "Extension", "Platform"}},
    {"Tree", {"Model", "Units", "Native", "Extension", "Platform"}},
    {"Scan", {"Tree", "Model", "Units", "Removal", "Native", "Extension", "Platform"}},
    {"HelpTool", {"Units", "Platform"}, true},
    {"Selection", {"Scan", "Tree", "Model", "Units", "Native", "Extension", "Platform"}, true},
    {"Clean",
     {"Selection", "HelpTool", "Scan", "Tree", "Model", "Units", "Removal", "Native", "Extension",
      "Platform"},
     true},
    {"ToolKits", {"HelpTool", "Scan", "Tree", "Model", "Units", "Native", "Extension", "Platform"}},
};

/// Units that include each other. The records of the tree know their parents and their children, which is
/// intended; the other circles should be removed, and none may be added.
const std::vector<std::vector<std::string_view>> kKnownCircles = {
    {"Model/CategoryInfo", "Model/FeatureInfo", "Model/FileInfo", "Model/ModuleInfo"},
    {"HelpTool/DBusHelperConnection", "HelpTool/HelperEvent"},
    {"HelpTool/EventCodec", "HelpTool/MessageView"},
};

struct ThirdParty {
  std::string_view prefix;                // the prefix of its headers
  std::vector<std::string_view> folders;  // folders whose sources may include them
};

const std::vector<ThirdParty> kThirdParties = {
    {"glib", {"Platform/Queues", "Platform/Items"}},
    {"gio/", {"Platform/Items"}},
    {"sqlite3", {"Units"}},
    {"unicode/", {"Platform/Text"}},
    {"openssl/", {"Platform/Digest"}},
    {"vips/", {"Native"}},
    {"sdbus-c++/", {"HelpTool", "Helper"}},
    {"CLI/", {"Host"}},
    {"nlohmann/", {"Host", "Scan", "Clean"}},
};

std::string_view firstFolder(std::string_view path) { return path.substr(0, path.find('/')); }

bool contains(const std::vector<std::string_view>& list, std::string_view word) {
  return std::ranges::find(list, word) != list.end();
}

/// The room that a file lies in, e.g. "Platform/Text" or "Scan".
std::string_view roomOf(std::string_view path) {
  const std::string_view first = firstFolder(path);
  if (first != "Platform") return first;
  return path.substr(0, path.find('/', first.size() + 1));
}

const Room* findRoom(std::string_view folder) {
  const auto room = std::ranges::find(kRooms, folder, &Room::folder);
  return room == kRooms.end() ? nullptr : &*room;
}

/// The folder below Scan/ of a scanner, "" for files that all scanners share.
std::string_view scannerFolder(std::string_view path) {
  if (!path.starts_with("Scan/")) return "";
  const std::string_view below = path.substr(5);
  const std::size_t slash = below.find('/');
  return slash == std::string_view::npos ? "" : below.substr(0, slash);
}

/// The fault in `file` including `target`, both relative to SorrelFramework/; "" if there is none.
std::string arrowFault(std::string_view file, std::string_view target) {
  const std::string_view from = roomOf(file);
  const std::string_view to = roomOf(target);
  const Room* room = findRoom(from);
  if (room == nullptr) return "no room is called " + std::string(from);
  if (from != to && !contains(room->mayInclude, to) && !contains(room->mayInclude, firstFolder(to))) {
    return std::string(from) + " must not know " + std::string(to);
  }
  if (from == "Scan" && to == "Scan" && !scannerFolder(target).empty() &&
      scannerFolder(file) != scannerFolder(target)) {
    return "a scanner must not know another scanner";
  }
  return "";
}

/// The fault in `file`, in folder `folder`, including <header>; "" if there is none.
std::string thirdPartyFault(std::string_view file, std::string_view folder, std::string_view header) {
  for (const ThirdParty& library : kThirdParties) {
    if (!header.starts_with(library.prefix)) continue;
    if (folder != "Host" && file.ends_with(".hpp")) return "a third-party type in a header";
    if (!contains(library.folders, folder)) return "<" + std::string(header) + "> is not wrapped here";
  }
  return "";
}

/// True if <header> belongs to the operating system rather than to the language.
bool isOfTheSystem(std::string_view header) {
  static const std::vector<std::string_view> kFolders = {"sys", "linux", "asm", "net", "netinet", "arpa"};
  static const std::vector<std::string_view> kLanguage = {"immintrin.h", "cpuid.h"};  // the processor's
  if (header.find('/') != std::string_view::npos) return contains(kFolders, firstFolder(header));
  const auto isThirdParty = [&](const ThirdParty& library) { return header.starts_with(library.prefix); };
  return header.ends_with(".h") && !contains(kLanguage, header) &&
         std::ranges::none_of(kThirdParties, isThirdParty);
}

/// The fault in `file`, relative to SorrelFramework/, including <header>; "" if there is none.
std::string systemFault(std::string_view file, std::string_view header) {
  const Room* room = findRoom(roomOf(file));
  if (!isOfTheSystem(header) || (room != nullptr && room->knowsTheSystem)) return "";
  return std::string(roomOf(file)) + " must not know <" + std::string(header) + ">";
}

const fs::path& kRoot = test::kSourceRoot;

TEST(Layers, arrowsOfTheFrameworkPointDown) {
  const auto sources = sourcesBelow("SorrelFramework");
  EXPECT_GT(sources.size(), 20U);
  for (const std::string& file : sources) {
    for (const Include& include : includesOf(kRoot / "SorrelFramework" / file)) {
      if (!include.target.starts_with(kFramework)) continue;
      EXPECT_EQ(arrowFault(file, include.target.substr(kFramework.size())), "")
          << file << " includes " << include.target;
    }
  }
}

TEST(Layers, onlySomeRoomsKnowTheOperatingSystem) {
  for (const std::string& file : sourcesBelow("SorrelFramework")) {
    for (const Include& include : includesOf(kRoot / "SorrelFramework" / file)) {
      if (!include.angled) continue;
      EXPECT_EQ(systemFault(file, include.target), "") << file;
    }
  }
}

/// A header with its source is one unit: "Model/FileInfo" for Model/FileInfo.hpp and Model/FileInfo.cpp.
using Units = std::map<std::string, std::set<std::string>>;

std::string unitOf(std::string_view file) { return std::string(file.substr(0, file.rfind('.'))); }

/// Which units each unit below `folder` includes; units of other folders do not count.
Units unitsBelow(const std::string& folder) {
  Units units;
  for (const std::string& file : sourcesBelow(folder)) {
    for (const Include& include : includesOf(kRoot / folder / file)) {
      if (!include.target.starts_with(folder + '/')) continue;
      const std::string target = unitOf(include.target.substr(folder.size() + 1));
      if (target != unitOf(file)) units[unitOf(file)].insert(target);
    }
  }
  return units;
}

std::set<std::string> reachedFrom(const std::string& unit, const Units& units) {
  std::set<std::string> reached;
  std::vector<std::string> next = {unit};
  while (!next.empty()) {
    const auto found = units.find(next.back());
    next.pop_back();
    if (found == units.end()) continue;
    for (const std::string& target : found->second) {
      if (reached.insert(target).second) next.push_back(target);
    }
  }
  return reached;
}

/// The sets of units that include each other, directly or through others.
std::set<std::vector<std::string>> circlesAmong(const Units& units) {
  std::map<std::string, std::set<std::string>> reached;
  for (const auto& [unit, targets] : units) reached[unit] = reachedFrom(unit, units);
  std::set<std::vector<std::string>> circles;
  for (const auto& [unit, targets] : reached) {
    std::vector<std::string> circle;
    for (const std::string& target : targets) {
      if (reached.contains(target) && reached[target].contains(unit)) circle.push_back(target);
    }
    if (!circle.empty()) circles.insert(circle);
  }
  return circles;
}

TEST(Layers, noUnitsButTheKnownOnesIncludeEachOther) {
  std::set<std::vector<std::string>> known;
  for (const auto& circle : kKnownCircles) known.emplace(circle.begin(), circle.end());
  EXPECT_EQ(circlesAmong(unitsBelow("SorrelFramework")), known);
}

TEST(Layers, noUnitsOfTheProgramsIncludeEachOther) {
  for (const char* program : {"Host", "Tools"}) {
    EXPECT_TRUE(circlesAmong(unitsBelow(program)).empty()) << program;
  }
  // Still to be opened.
  const std::set<std::vector<std::string>> known = {{"EventRunner", "SystemMaintenance"}};
  EXPECT_EQ(circlesAmong(unitsBelow("Helper")), known);
}

TEST(Layers, aCircleIsFoundThroughOtherUnits) {
  EXPECT_TRUE(circlesAmong({{"A", {"B"}}, {"B", {"C"}}, {"D", {"A"}}}).empty());
  const std::set<std::vector<std::string>> circle = {{"A", "B", "C"}};
  EXPECT_EQ(circlesAmong({{"A", {"B"}}, {"B", {"C"}}, {"C", {"A"}}, {"D", {"A"}}}), circle);
}

TEST(Layers, thirdPartyHeadersStandOnlyWhereTheyAreWrapped) {
  for (const std::string& file : sourcesBelow("SorrelFramework")) {
    for (const Include& include : includesOf(kRoot / "SorrelFramework" / file)) {
      if (!include.angled) continue;
      EXPECT_EQ(thirdPartyFault(file, roomOf(file), include.target), "") << file;
    }
  }
  for (const std::string& file : sourcesBelow("Host")) {
    for (const Include& include : includesOf(kRoot / "Host" / file)) {
      if (!include.angled) continue;
      EXPECT_EQ(thirdPartyFault(file, "Host", include.target), "") << file;
    }
  }
}

TEST(Layers, includesInsideTheFrameworkNameFilesOfTheFramework) {
  for (const std::string& file : sourcesBelow("SorrelFramework")) {
    for (const Include& include : includesOf(kRoot / "SorrelFramework" / file)) {
      if (include.angled) continue;
      EXPECT_TRUE(include.target.starts_with(kFramework)) << file << " " << include.target;
    }
  }
}

/// True if the root program may include `target`, relative to SorrelFramework/.
bool isForTheHelper(std::string_view target) {
  static const std::vector<std::string_view> kShared = {
      "HelpTool/EventCodec.hpp",        "HelpTool/HelperProtocol.hpp",
      "HelpTool/HelperWireNames.hpp",   "HelpTool/MessageView.hpp",
      "HelpTool/SealedMemory.hpp",      "Platform/Base/FileDescriptor.hpp",
      "Platform/Files/FileExtents.hpp", "Platform/Files/FolderStream.hpp",
      "Platform/Files/MountTable.hpp",  "Platform/Files/OpenResolving.hpp"};
  return firstFolder(target) == "Removal" || contains(kShared, target);
}

TEST(Layers, theRootProgramKnowsFewSources) {
  const auto sources = sourcesBelow("Helper");
  EXPECT_GT(sources.size(), 3U);
  for (const std::string& file : sources) {
    for (const Include& include : includesOf(kRoot / "Helper" / file)) {
      if (include.angled) {
        EXPECT_EQ(thirdPartyFault(file, "Helper", include.target), "") << file;
      } else if (!include.target.starts_with("Helper/")) {
        EXPECT_TRUE(include.target.starts_with(kFramework) &&
                    isForTheHelper(include.target.substr(kFramework.size())))
            << file << " includes " << include.target;
      }
    }
  }
}

TEST(Layers, theRootProgramReadsNoRichFormats) {
  EXPECT_FALSE(isForTheHelper("Platform/PropertyLists/PropertyList.hpp"));
  EXPECT_FALSE(isForTheHelper("Platform/Text/URL.hpp"));
  EXPECT_FALSE(isForTheHelper("HelpTool/DBusHelperConnection.hpp"));
  EXPECT_TRUE(isForTheHelper("Removal/TreeRemoval.hpp"));
}

/// The fault in a stand-in tool including `target`; "" if there is none. The tools are separate programs that
/// the framework starts: they share its walk of a tree and its platform, and use no records.
std::string toolFault(std::string_view target) {
  static const std::vector<std::string_view> kShared = {"Scan/TreeWalk.hpp", "Scan/UnreadFolders.hpp"};
  if (target.starts_with("Tools/")) return "";
  if (!target.starts_with(kFramework)) return "a tool must not know " + std::string(target);
  target.remove_prefix(kFramework.size());
  if (firstFolder(target) == "Platform" || contains(kShared, target)) return "";
  return "a tool must not know " + std::string(target);
}

TEST(Layers, theToolsKnowThePlatformAndTheWalk) {
  const auto sources = sourcesBelow("Tools");
  EXPECT_GT(sources.size(), 3U);
  for (const std::string& file : sources) {
    for (const Include& include : includesOf(kRoot / "Tools" / file)) {
      if (include.angled) {
        EXPECT_EQ(thirdPartyFault(file, "Tools", include.target), "") << file;
      } else {
        EXPECT_EQ(toolFault(include.target), "") << file;
      }
    }
  }
}

TEST(Layers, theProgramKnowsNoToolAndNoPartOfTheRootProgram) {
  for (const std::string& file : sourcesBelow("Host")) {
    for (const Include& include : includesOf(kRoot / "Host" / file)) {
      if (include.angled) continue;
      EXPECT_TRUE(include.target.starts_with("Host/") || include.target.starts_with(kFramework))
          << file << " includes " << include.target;
    }
  }
}

TEST(Layers, aToolThatKnowsRecordsOrTheProgramIsAFault) {
  EXPECT_NE(toolFault("SorrelFramework/Model/FileInfo.hpp"), "");
  EXPECT_NE(toolFault("SorrelFramework/Scan/SuperScanService.hpp"), "");
  EXPECT_NE(toolFault("Host/FeatureTable.hpp"), "");
  EXPECT_EQ(toolFault("SorrelFramework/Platform/Text/URL.hpp"), "");
  EXPECT_EQ(toolFault("Tools/FindQuery.hpp"), "");
  EXPECT_NE(thirdPartyFault("Tools/FindQuery.cpp", "Tools", "glib.h"), "");
}

TEST(Layers, anArrowUpIsAFault) {
  EXPECT_NE(arrowFault("Units/LogService.cpp", "Scan/SuperScanService.hpp"), "");
  EXPECT_NE(arrowFault("Platform/Machine/Host.cpp", "Units/LogService.hpp"), "");
  EXPECT_NE(arrowFault("Platform/Text/URL.cpp", "Platform/Machine/Host.hpp"), "");
  EXPECT_EQ(arrowFault("Platform/Machine/Host.cpp", "Platform/Text/URL.hpp"), "");
  EXPECT_EQ(arrowFault("Scan/SuperScanService.cpp", "Units/LogService.hpp"), "");
}

TEST(Layers, theHelpersLinkKnowsNoRecords) {
  EXPECT_NE(arrowFault("HelpTool/PrivilegeHelper.cpp", "Model/FileInfo.hpp"), "");
  EXPECT_NE(arrowFault("HelpTool/EventCodec.cpp", "Removal/TreeRemoval.hpp"), "");
  EXPECT_EQ(arrowFault("HelpTool/PrivilegeHelper.cpp", "Platform/Machine/Host.hpp"), "");
}

TEST(Layers, aScannerThatKnowsAnotherIsAFault) {
  EXPECT_NE(arrowFault("Scan/Duplicate/A.cpp", "Scan/Similar/B.hpp"), "");
  EXPECT_NE(arrowFault("Scan/SuperScanService.cpp", "Scan/Similar/B.hpp"), "");
  EXPECT_EQ(arrowFault("Scan/Similar/A.cpp", "Scan/Similar/B.hpp"), "");
  EXPECT_EQ(arrowFault("Scan/Similar/A.cpp", "Scan/SuperScanService.hpp"), "");
}

TEST(Layers, aFolderThatIsNoRoomIsAFault) {
  EXPECT_NE(arrowFault("Misc/A.cpp", "Platform/Text/URL.hpp"), "");
}

TEST(Layers, aSystemHeaderOutsideItsRoomsIsAFault) {
  EXPECT_NE(systemFault("Scan/TreeWalk.cpp", "sys/stat.h"), "");
  EXPECT_NE(systemFault("Model/FileInfo.hpp", "unistd.h"), "");
  EXPECT_EQ(systemFault("Platform/Files/FileStatus.cpp", "sys/stat.h"), "");
  EXPECT_EQ(systemFault("Model/FileInfo.hpp", "string"), "");
}

TEST(Layers, aThirdPartyHeaderInAHeaderIsAFault) {
  EXPECT_NE(thirdPartyFault("Platform/Machine/Host.hpp", "Platform/Machine", "glib.h"), "");
  EXPECT_NE(thirdPartyFault("Model/ModuleInfo.cpp", "Model", "unicode/unistr.h"), "");
  EXPECT_EQ(thirdPartyFault("Platform/Text/Text.cpp", "Platform/Text", "unicode/unistr.h"), "");
}

}  // namespace
}  // namespace sorrel
