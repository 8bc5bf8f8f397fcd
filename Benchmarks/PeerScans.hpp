#pragma once

#include <cstdint>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace sorrel::bench {

/// Paths of files with the same content.
using Group = std::set<std::string>;
using Groups = std::set<Group>;

inline std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// One path on a line, an empty line after each group.
inline Groups groupsOfLines(const std::string& path) {
  Groups groups;
  Group group;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (!line.empty()) {
      group.insert(line);
    } else if (group.size() > 1) {
      groups.insert(std::exchange(group, {}));
    }
  }
  if (group.size() > 1) groups.insert(group);
  return groups;
}

inline Groups groupsOf(const std::map<std::string, Group>& named) {
  Groups groups;
  for (const auto& [name, group] : named) {
    if (group.size() > 1) groups.insert(group);
  }
  return groups;
}

/// Seven words and the path; the second one is the number of the group, negative after its first file.
inline Groups groupsOfRdfind(const std::string& path) {
  std::map<std::string, Group> named;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with('#')) continue;
    std::istringstream words(line);
    std::string word;
    std::string number;
    words >> word >> number;
    for (int i = 0; i < 5; ++i) words >> word;
    std::string name;
    std::getline(words.ignore(1), name);
    named[number.starts_with('-') ? number.substr(1) : number].insert(name);
  }
  return groupsOf(named);
}

inline Groups groupsOfRmlint(const std::string& path) {
  std::map<std::string, Group> named;
  const auto document = nlohmann::json::parse(contentOf(path), nullptr, false);
  if (!document.is_array()) return {};
  for (const auto& entry : document) {
    if (entry.value("type", "") == "duplicate_file")
      named[entry.at("checksum")].insert(entry.at("path").get<std::string>());
  }
  return groupsOf(named);
}

/// The engine or a peer, and its result.
struct Program {
  std::string name;
  std::vector<std::string> words;
  std::string result;  ///< the file with its groups
  Groups (*read)(const std::string& path);
  double peakKiB = 0;
  Groups groups{};
};

/// Files above this many KiB are compared.
inline constexpr std::int64_t kLimit = 512;

/// The engine first: `self` is the program that runs it.
inline std::vector<Program> programsFor(const std::string& set, const std::string& self,
                                        const std::string& place) {
  const std::string least = std::to_string(kLimit * 1024 + 1);
  const std::string out = place + "/out";
  return {
      {"DuplicateScanService", {self, "scan", set, std::to_string(kLimit)}, out, groupsOfLines},
      {"fdupes -r -q -G", {"fdupes", "-r", "-q", "-A", "-G", least, set}, out, groupsOfLines},
      {"rdfind -checksum md5",
       {"rdfind", "-dryrun", "true", "-minsize", least, "-checksum", "md5", "-outputname", place + "/rdfind",
        set},
       place + "/rdfind",
       groupsOfRdfind},
      {"rmlint -T df -a md5",
       {"rmlint", "-T", "df", "--size", least, "-a", "md5", "-o", "json:" + place + "/rmlint", set},
       place + "/rmlint",
       groupsOfRmlint},
      {"rmlint -T df (blake2b)",
       {"rmlint", "-T", "df", "--size", least, "-o", "json:" + place + "/rmlint", set},
       place + "/rmlint",
       groupsOfRmlint},
      {"jdupes -r -q", {"jdupes", "-r", "-q", "-A", "-X", "size+=:" + least, set}, out, groupsOfLines},
  };
}

}  // namespace sorrel::bench
