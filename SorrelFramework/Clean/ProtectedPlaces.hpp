#pragma once

namespace sorrel {

class RemovalPolicy;

/// Adds to `policy` what a clean must never remove on the machine that Host::current() tells of, whatever its
/// records say: the root of the volume, the folder of the homes and each home in it, the user's home, each
/// home's trash, and the trash folders of the mounted volumes but those on a network. What lies in them may
/// go. For the places of this moment; links to folders count as the folder.
void protectPlacesOfHost(RemovalPolicy& policy);

}  // namespace sorrel
