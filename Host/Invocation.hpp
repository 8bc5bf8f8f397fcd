#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Host/RowOrder.hpp"

namespace sorrel::cli {

/// The options that every command takes, before or after its name.
struct GlobalOptions {
  std::string catalogue;  ///< "": the one that comes with the program
  std::string volume;     ///< "": this machine
  std::string user;       ///< "": see HostSetup
  std::string bundleID = SORREL_BUNDLE_ID;
  std::string toolFolder;       ///< "": the program's own stand-ins, if any
  bool engineDefaults = false;  ///< see EngineSwitches
  bool json = false;
  bool quiet = false;
};

/// What `clean` is to do.
struct CleanOptions {
  bool all = false;
  std::vector<std::string> globs;
  std::vector<std::string> exceptions;  ///< globs too
  bool dryRun = false;
  bool yes = false;
  bool evenLastCopy = false;
};

struct Command;

/// A command line that makes sense.
struct Invocation {
  GlobalOptions options;
  const Command* command = nullptr;
  std::string feature;                  ///< of `scan` and `clean`
  std::vector<std::string> paths;       ///< of `scan` and `clean`
  std::optional<std::int64_t> limit{};  ///< of `scan` and `clean`, KiB
  RowOrder order = RowOrder::BySize;    ///< of `scan` and `clean`
  CleanOptions clean;
};

}  // namespace sorrel::cli
