#pragma once

namespace sorrel {

/// Quality of service of a queue, the most urgent first.
enum class WeftQOS : int { UserInteractive = 0, UserInitiated = 1, Default = 2, Utility = 3, Background = 4 };

}  // namespace sorrel
