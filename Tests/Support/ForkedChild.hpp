#pragma once

#include <functional>
#include <string>

namespace sorrel::test {

/// Runs `work` in a child process and answers the text that it gives; for what a test can't do to its own
/// process. A child that dies, or takes longer than a minute, gives "ended by signal N". No test expectation
/// counts in there.
std::string inChild(const std::function<std::string()>& work);

/// The same in a child without privileges: if the test runs as root, as user and group kPlainUser.
inline constexpr unsigned kPlainUser = 10001;
std::string inPlainChild(const std::function<std::string()>& work);

/// True if this process may act as kPlainUser and give it files: root, except in a user namespace that has no
/// other user than root.
bool canBeOtherUsers();

/// The same in a child with a mount table of its own, where it may mount and nobody else sees it. "skip"
/// where the system does not allow that.
std::string inMountingChild(const std::function<std::string()>& work);

/// The same in a child whose temporary folders lie in a file system in memory of its own, where that is
/// possible.
std::string inMemoryChild(const std::function<std::string()>& work);

}  // namespace sorrel::test
