#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "Tests/Host/CleanVolume.hpp"
#include "Tests/Host/HostKit.hpp"

namespace sorrel::hosttests {

using Groups = std::vector<Words>;

inline const std::string kHome = "Users/alice/";

/// A volume with the catalogue that comes with the program, and its log in place.
struct DuplicatesVolume : LoggedVolume {
  /// `command` is "scan" or "clean"; every file takes part, whatever its size.
  ProgramRun run(const std::string& command, const Words& more, const RunOptions& options = {}) const {
    Words words = {"--volume", path(), command, "duplicates", "--limit", "0"};
    words.insert(words.end(), more.begin(), more.end());
    return sorrel(words, options);
  }
  ProgramRun scan(const Words& more = {}) const { return run("scan", more); }
  ProgramRun clean(const Words& more, const RunOptions& options = {}) const {
    return run("clean", more, options);
  }
  /// Paths below the home of the members of each group.
  [[nodiscard]] Groups groupsIn(const Json& document) const {
    Groups groups;
    for (const Json& header : all(document).at("childrens")) {
      Words members;
      for (const Json& member : header.at("childrens")) {
        members.push_back(
            std::filesystem::relative(member.at("path").get<std::string>(), path(kHome)).string());
      }
      groups.push_back(members);
    }
    std::ranges::sort(groups);
    return groups;
  }
  [[nodiscard]] Groups groups(Words more = {}) const {
    more.insert(more.begin(), "--json");
    const ProgramRun run = scan(more);
    EXPECT_EQ(run.status, 0) << run.err;
    return groupsIn(run.document());
  }
  static Json::const_reference all(const Json& document) {
    return document.at("feature").at("categoryInfo").at(0);
  }
};

/// Two copies of one file, three of another, and two twin folders.
struct FullDuplicatesVolume : DuplicatesVolume {
  FullDuplicatesVolume() {
    for (const char* const name : {"Data/a.jpg", "Other/b.jpg"}) text(kHome + name, "picture");
    for (const char* const name : {"Data/one.txt", "Data/two.txt", "Other/three.txt"}) {
      text(kHome + name, "some words");
    }
    for (const char* const name : {"Pairs/left/", "Pairs/right/"}) {
      text(kHome + name + "x", "content of x");
      text(kHome + name + "sub/y", "content of y!");
    }
    text(kHome + "Data/alone", "nobody is like me");
  }
};

}  // namespace sorrel::hosttests
