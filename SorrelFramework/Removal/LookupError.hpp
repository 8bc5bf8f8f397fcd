#pragma once

namespace sorrel {

/// Whether a failed look-up answers that this process can reach no such place: it is missing, closed to it,
/// or on a volume that is gone. Every other errno (no descriptors left, no memory, a bad sector) tells
/// nothing of the place, and whoever wanted to keep something off it must keep off everything.
[[nodiscard]] bool tellsOfNoPlace(int error) noexcept;

/// Whether it is one of those that leave open that there is such a place: closed to this process, or on a
/// volume that does not answer now. For another process, or a moment later, it may be there.
[[nodiscard]] bool tellsOfPlaceOutOfReach(int error) noexcept;

}  // namespace sorrel
