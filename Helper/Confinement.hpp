#pragma once

namespace sorrel::helper {

/// Takes from this process, for good, every right that its work does not need: its capabilities are the three
/// that removing other users' files takes, no program that it starts gets more, and it opens at most
/// kMostDescriptors files. The unit of the service manager does the same; a bus without a service manager
/// starts the program without a unit. False, with errno, if that failed. Before the first thread.
bool confineProcess();

/// As in the unit.
inline constexpr unsigned kMostDescriptors = 4096;

}  // namespace sorrel::helper
