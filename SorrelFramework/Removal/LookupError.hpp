#pragma once

namespace sorrel {

/// True if a failed look-up proves that this process can reach no such path: it is missing, access is denied,
/// or its volume is gone. Every other errno (no descriptors left, no memory, a bad sector) says nothing about
/// the path; a caller that wants to protect it must then protect everything.
[[nodiscard]] bool tellsOfNoPlace(int error) noexcept;

/// True for errors that do not prove absence: access is denied, or the volume does not answer now. For
/// another process, or a moment later, the path may exist.
[[nodiscard]] bool tellsOfPlaceOutOfReach(int error) noexcept;

}  // namespace sorrel
