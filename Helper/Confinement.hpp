#pragma once

namespace sorrel::helper {

/// Permanently drops every permission of this process that its work does not need: it keeps the three
/// capabilities needed to remove other users' files, programs that it starts get no more, and it opens at
/// most kMostDescriptors files. The unit of the service manager does the same; a bus without a service
/// manager starts the program without a unit. False, with errno, if that failed. To be called before the
/// first thread starts.
bool confineProcess();

/// The same value as in the unit.
inline constexpr unsigned kMostDescriptors = 4096;

}  // namespace sorrel::helper
