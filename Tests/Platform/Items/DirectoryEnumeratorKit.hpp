#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "SorrelFramework/Platform/Items/DirectoryEnumerator.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel::test {

using Names = std::vector<std::string>;
using Visit = std::function<void(DirectoryEnumerator&, const std::string&)>;

/// Walks the folder "top" of a volume.
class DirectoryEnumeratorTest : public testing::Test {
 protected:
  DirectoryEnumeratorTest() {
    volume_.folder("top");
    volume_.install();
  }

  /// Paths below the root of the walk from the URLs, a folder's with its "/"; `visit` is called for each.
  Names walk(EnumerationOptions options = 0, const Visit& visit = {}, EnumerationErrorHandler handler = {}) {
    return walkOf(volume_.url("top/"), options, visit, std::move(handler));
  }

  static Names walkOf(const URL& root, EnumerationOptions options = 0, const Visit& visit = {},
                      EnumerationErrorHandler handler = {}) {
    Names names;
    DirectoryEnumerator enumerator(root, options, std::move(handler));
    while (const DirectoryEnumerator::Item* item = enumerator.next()) {
      std::string name = item->url.path().substr(root.path().size() + 1);
      if (item->url.relativeText().ends_with('/')) name += '/';
      names.push_back(name);
      if (visit) visit(enumerator, name);
    }
    return names;
  }

  TemporaryVolume volume_;
};

}  // namespace sorrel::test
