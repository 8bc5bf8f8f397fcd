#pragma once

#include <string>

namespace sorrel::test {

/// Removes a tree of the test's own, whatever a test made of it: thousands of levels, paths longer than
/// PATH_MAX, any names, folders without rights. Links are removed, not followed; what is mounted in the tree
/// is left alone. False if something is still there, and for everything outside a TemporaryFolder: a test
/// that fails because a guard is broken must not take the machine with it.
bool removeTree(const std::string& path);

}  // namespace sorrel::test
