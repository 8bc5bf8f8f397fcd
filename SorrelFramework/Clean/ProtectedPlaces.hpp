#pragma once

namespace sorrel {

class RemovalPolicy;

/// Adds to `policy` the paths that a clean must never remove on the machine of Host::current(), whatever its
/// records say: the root of the volume, the folder of the homes and each home in it, the user's home, each
/// home's trash, and the trash folders of the mounted volumes except those on a network. Their contents may
/// go. Looked up once, at the call; a link to a folder protects that folder.
void protectPlacesOfHost(RemovalPolicy& policy);

}  // namespace sorrel
