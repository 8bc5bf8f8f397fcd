#pragma once

#include <functional>
#include <string>

namespace sorrel::test {

/// Runs `work` in a child process and returns its text; for operations that a test can't perform on its own
/// process. A child that dies, or takes longer than a minute, gives "ended by signal N". Test expectations
/// have no effect in the child.
std::string inChild(const std::function<std::string()>& work);

/// The same in a child without privileges: if the test runs as root, as user and group kPlainUser.
inline constexpr unsigned kPlainUser = 10001;
std::string inPlainChild(const std::function<std::string()>& work);

/// True if this process may act as kPlainUser and give it files: root, except in a user namespace with root
/// as its only user.
bool canBeOtherUsers();

/// The same in a child with a mount table of its own, where it may mount and no other process sees it. "skip"
/// where the system does not allow that.
std::string inMountingChild(const std::function<std::string()>& work);

/// The same in a child whose temporary folders lie in a file system in memory of its own, where that is
/// possible.
std::string inMemoryChild(const std::function<std::string()>& work);

}  // namespace sorrel::test
