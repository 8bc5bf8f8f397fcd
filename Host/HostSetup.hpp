#pragma once

#include <optional>
#include <string>

namespace sorrel::cli {

struct GlobalOptions;

/// Selects the machine that the framework works on, and its resources, before the framework's first call.
///
/// With a volume: the home is that of `user`; without one, the single folder below Users other than "Shared",
/// else the login name. A volume that is not a folder or lacks the home is wrong use. Without a volume: this
/// machine, and only the user who runs the program.
///
/// The program's own files lie beside it: its catalogues in ../share/sorrel/Catalogue/{macOS,Linux},
/// stand-ins for system tools in ../libexec/sorrel. The build folder has the same layout as an installation.
void installHost(const GlobalOptions& options);

/// Path of the program's own install-helper, ../libexec/sorrel, if it exists. "" on a volume, where an
/// installed helper would not be found.
std::string bundledInstaller();

/// The catalogue file that the user chose; nothing for the program's own.
std::optional<std::string> chosenCatalogue(const GlobalOptions& options);

}  // namespace sorrel::cli
