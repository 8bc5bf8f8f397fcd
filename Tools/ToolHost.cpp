#include "Tools/ToolHost.hpp"

#include <cstdlib>

#include "SorrelFramework/Platform/Machine/ChildProcess.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"

namespace sorrel::tools {

std::string installToolHost() {
  const char* const volume = std::getenv(kVolumeVariable);
  if (volume == nullptr || volume[0] != '/') return "/";
  Host::install(Host::macVolume(volume, "", {}));
  const std::string& root = Host::current().root();
  return root.empty() ? "/" : root;
}

}  // namespace sorrel::tools
