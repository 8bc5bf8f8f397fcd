// The folder tree is the architecture: these tests read every #include of the framework and of the
// command-line program and hold them against the tables below.
#include <gtest/gtest.h>
#include <TestPlaces.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;

struct Floor {
  std::string_view folder;
  std::vector<std::string_view> mayInclude;  // besides itself
};

const std::vector<Floor> kFloors = {
    {"Platform", {}},
    {"Extension", {"Platform"}},
    {"Native", {"Extension", "Platform"}},
    {"Units", {"Native", "Extension", "Platform"}},
    {"Model", {"Units", "Native", "Extension", "Platform"}},
    {"Tree", {"Model", "Units", "Native", "Extension", "Platform"}},
    {"Scan", {"Tree", "Model", "Units", "Native", "Extension", "Platform"}},
    {"HelpTool", {"Units", "Platform"}},
    {"Clean", {"HelpTool", "Scan", "Tree", "Model", "Units", "Native", "Extension", "Platform"}},
    {"ToolKits", {"HelpTool", "Scan", "Tree", "Model", "Units", "Native", "Extension", "Platform"}},
};

struct ThirdParty {
  std::string_view prefix;                // how its headers begin
  std::vector<std::string_view> folders;  // whose sources may include them
};

const std::vector<ThirdParty> kThirdParties = {
    {"glib", {"Platform"}},
    {"gio/", {"Platform"}},
    {"sqlite3", {"Units"}},
    {"unicode/", {"Platform"}},
    {"openssl/", {"Platform"}},
    {"vips/", {"Native"}},
    {"sdbus-c++/", {"HelpTool", "Helper"}},
    {"CLI/", {"Host"}},
    {"nlohmann/", {"Host", "Scan", "Clean"}},
};

std::string_view firstFolder(std::string_view path) { return path.substr(0, path.find('/')); }

bool contains(const std::vector<std::string_view>& list, std::string_view word) {
  return std::ranges::find(list, word) != list.end();
}

/// The folder below Scan/ that a scanner lives in, "" for what all scanners share.
std::string_view scannerFolder(std::string_view path) {
  if (!path.starts_with("Scan/")) return "";
  const std::string_view below = path.substr(5);
  const std::size_t slash = below.find('/');
  return slash == std::string_view::npos ? "" : below.substr(0, slash);
}

/// What is wrong with `file` including `target`, both relative to SorrelFramework/; "" if nothing is.
std::string arrowFault(std::string_view file, std::string_view target) {
  const std::string_view from = firstFolder(file);
  const std::string_view to = firstFolder(target);
  const auto floor = std::ranges::find(kFloors, from, &Floor::folder);
  if (floor == kFloors.end()) return "no floor is called " + std::string(from);
  if (from != to && !contains(floor->mayInclude, to)) {
    return std::string(from) + " must not know " + std::string(to);
  }
  if (from == "Scan" && to == "Scan" && !scannerFolder(target).empty() &&
      scannerFolder(file) != scannerFolder(target)) {
    return "a scanner must not know another scanner";
  }
  return "";
}

/// What is wrong with `file`, in folder `folder`, including <header>; "" if nothing is.
std::string thirdPartyFault(std::string_view file, std::string_view folder, std::string_view header) {
  for (const ThirdParty& library : kThirdParties) {
    if (!header.starts_with(library.prefix)) continue;
    if (folder != "Host" && file.ends_with(".hpp")) return "a third-party type in a header";
    if (!contains(library.folders, folder)) return "<" + std::string(header) + "> is not wrapped here";
  }
  return "";
}

struct Include {
  std::string target;
  bool angled;
};

std::vector<Include> includesOf(const fs::path& file) {
  std::ifstream source(file);
  std::vector<Include> includes;
  for (std::string line; std::getline(source, line);) {
    if (!line.starts_with("#include ")) continue;
    const char open = line.size() > 9 ? line[9] : '\0';
    const std::size_t close = line.find(open == '<' ? '>' : '"', 10);
    if ((open == '<' || open == '"') && close != std::string::npos) {
      includes.push_back({line.substr(10, close - 10), open == '<'});
    }
  }
  return includes;
}

const fs::path kRoot = SORREL_SOURCE_DIR;
constexpr std::string_view kFramework = "SorrelFramework/";

/// Every source and header below `folder`, relative to it.
std::vector<std::string> sourcesBelow(const fs::path& folder) {
  std::vector<std::string> sources;
  for (const auto& entry : fs::recursive_directory_iterator(kRoot / folder)) {
    const std::string extension = entry.path().extension().string();
    if (extension == ".hpp" || extension == ".cpp") {
      sources.push_back(entry.path().lexically_relative(kRoot / folder).string());
    }
  }
  std::ranges::sort(sources);
  return sources;
}

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

TEST(Layers, thirdPartyHeadersStandOnlyWhereTheyAreWrapped) {
  for (const std::string& file : sourcesBelow("SorrelFramework")) {
    for (const Include& include : includesOf(kRoot / "SorrelFramework" / file)) {
      if (!include.angled) continue;
      EXPECT_EQ(thirdPartyFault(file, firstFolder(file), include.target), "") << file;
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

/// Whether the root program may include `target`, relative to SorrelFramework/.
bool isForTheHelper(std::string_view target) {
  static const std::vector<std::string_view> kShared = {
      "HelpTool/EventCodec.hpp",   "HelpTool/HelperProtocol.hpp", "HelpTool/HelperWireNames.hpp",
      "HelpTool/MessageView.hpp",  "HelpTool/SealedMemory.hpp",   "Platform/FileDescriptor.hpp",
      "Platform/FolderStream.hpp", "Platform/MountTable.hpp",     "Platform/OpenResolving.hpp"};
  return firstFolder(target) == "Native" || contains(kShared, target);
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
  EXPECT_FALSE(isForTheHelper("Platform/PropertyList.hpp"));
  EXPECT_FALSE(isForTheHelper("Platform/URL.hpp"));
  EXPECT_FALSE(isForTheHelper("HelpTool/DBusHelperConnection.hpp"));
  EXPECT_TRUE(isForTheHelper("Native/TreeRemoval.hpp"));
}

/// What is wrong with a stand-in tool including `target`; "" if nothing is. The tools are programs of their
/// own that the framework starts: they share its walk of a tree and its platform, and know no records.
std::string toolFault(std::string_view target) {
  static const std::vector<std::string_view> kShared = {"Scan/TreeWalk.hpp"};
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
  EXPECT_NE(toolFault("Host/Features.hpp"), "");
  EXPECT_EQ(toolFault("SorrelFramework/Platform/URL.hpp"), "");
  EXPECT_EQ(toolFault("Tools/FindQuery.hpp"), "");
  EXPECT_NE(thirdPartyFault("Tools/FindQuery.cpp", "Tools", "glib.h"), "");
}

TEST(Layers, anArrowUpIsAFault) {
  EXPECT_NE(arrowFault("Units/LogService.cpp", "Scan/SuperScanService.hpp"), "");
  EXPECT_NE(arrowFault("Platform/Host.cpp", "Units/LogService.hpp"), "");
  EXPECT_EQ(arrowFault("Scan/SuperScanService.cpp", "Units/LogService.hpp"), "");
}

TEST(Layers, theHelpersLinkKnowsNoRecords) {
  EXPECT_NE(arrowFault("HelpTool/PrivilegeHelper.cpp", "Model/FileInfo.hpp"), "");
  EXPECT_NE(arrowFault("HelpTool/EventCodec.cpp", "Native/TreeRemoval.hpp"), "");
  EXPECT_EQ(arrowFault("HelpTool/PrivilegeHelper.cpp", "Platform/Host.hpp"), "");
}

TEST(Layers, aScannerThatKnowsAnotherIsAFault) {
  EXPECT_NE(arrowFault("Scan/Duplicate/A.cpp", "Scan/Similar/B.hpp"), "");
  EXPECT_NE(arrowFault("Scan/SuperScanService.cpp", "Scan/Similar/B.hpp"), "");
  EXPECT_EQ(arrowFault("Scan/Similar/A.cpp", "Scan/Similar/B.hpp"), "");
  EXPECT_EQ(arrowFault("Scan/Similar/A.cpp", "Scan/SuperScanService.hpp"), "");
}

TEST(Layers, aFolderWithoutAFloorIsAFault) { EXPECT_NE(arrowFault("Misc/A.cpp", "Platform/URL.hpp"), ""); }

TEST(Layers, aThirdPartyHeaderInAHeaderIsAFault) {
  EXPECT_NE(thirdPartyFault("Platform/Host.hpp", "Platform", "glib.h"), "");
  EXPECT_NE(thirdPartyFault("Model/ModuleInfo.cpp", "Model", "unicode/unistr.h"), "");
  EXPECT_EQ(thirdPartyFault("Platform/Text.cpp", "Platform", "unicode/unistr.h"), "");
}

}  // namespace
