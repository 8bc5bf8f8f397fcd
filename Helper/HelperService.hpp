#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "Helper/EventRunner.hpp"
#include "Helper/HelperConfiguration.hpp"
#include "Helper/HelperLog.hpp"

namespace sdbus {
class IConnection;
}

namespace sorrel::helper {

/// What the service is and may do.
struct HelperIdentity {
  std::string service;  ///< its name on the bus
  std::string version;
  /// Removes what the installation put on the machine; false, with a text, if something is left.
  std::function<bool(std::string& text)> uninstall;
};

/// The service on the bus, with the methods of HelperWireNames. The road of each event: its memory is mapped
/// if it is sealed and below the caps, the bus tells who sent it, its heading is read, polkit says yes or no,
/// its form is checked, a worker does it. Nothing that it names is looked at before the yes. It is answered
/// exactly once, unless its caller has left.
///
/// A caller that leaves before the yes has sent nothing. After it, the work has the configured time to end.
/// Each user and each connection may have a few events under way (CallList); one more is refused. A refusal
/// lists the paths as far as the user's RefusalBudget reaches, and none of them beyond.
///
/// Without work for the configured time it gives up its name and ends soon after, so that the next call is
/// for the program that is installed by then; what was on its way to it is answered in between.
class HelperService {
 public:
  HelperService(std::unique_ptr<sdbus::IConnection> connection, HelperIdentity identity,
                HelperConfiguration configuration, HelperLog& log);
  ~HelperService();
  HelperService(const HelperService&) = delete;
  HelperService& operator=(const HelperService&) = delete;

  /// Takes the name and serves until somebody who may closes it, it has been idle, `stopSignal` becomes
  /// readable, or the bus is gone. After a stop what runs is killed and answered. False if there is no bus or
  /// no name (any more).
  bool run(int stopSignal);

 private:
  class Core;
  std::unique_ptr<Core> core_;
};

}  // namespace sorrel::helper
