#pragma once

#include <string>

namespace sorrel::test {

/// Removes a tree of the test's own, in any state: thousands of levels, paths longer than PATH_MAX, any
/// names, folders without permissions. Links are removed, not followed; file systems mounted in the tree are
/// left alone. False if an item is still there, and for everything outside a TemporaryFolder: a test that
/// fails because a guard is broken must not damage the machine.
bool removeTree(const std::string& path);

}  // namespace sorrel::test
