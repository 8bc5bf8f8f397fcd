#pragma once

#include <cstddef>
#include <string>
#include <utility>

#include "SorrelFramework/HelpTool/HelperProtocol.hpp"

namespace sorrel::test {

/// An event of `count` paths of `size` bytes each; none of them exists.
inline HelperDictionary manyPaths(std::size_t count, std::size_t size) {
  HelperDictionary paths;
  for (std::size_t i = 0; i < count; ++i) {
    std::string path = "/no/such/folder/" + std::to_string(1'000'000 + i);
    path.resize(size, 'x');
    paths.emplace_hint(paths.end(), std::move(path), HelperDictionary{{"0", i}});
  }
  return paths;
}

}  // namespace sorrel::test
