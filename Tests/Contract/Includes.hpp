// What the sources of the project include.
#pragma once

#include <TestPlaces.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace sorrel::test {

inline const std::filesystem::path kSourceRoot = SORREL_SOURCE_DIR;
inline constexpr std::string_view kFramework = "SorrelFramework/";

struct Include {
  std::string target;
  bool angled;
};

inline std::vector<Include> includesOf(const std::filesystem::path& file) {
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

/// Every source and header below `folder`, relative to it.
inline std::vector<std::string> sourcesBelow(const std::filesystem::path& folder) {
  std::vector<std::string> sources;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(kSourceRoot / folder)) {
    const std::string extension = entry.path().extension().string();
    if (extension == ".hpp" || extension == ".cpp") {
      sources.push_back(entry.path().lexically_relative(kSourceRoot / folder).string());
    }
  }
  std::ranges::sort(sources);
  return sources;
}

}  // namespace sorrel::test
