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
/// if it is sealed and below the caps, the bus tells who sent it, its form is checked, polkit says yes or no,
/// a worker does it. Nothing that it names is looked at before the yes. It is answered exactly once, unless
/// its caller has left.
///
/// A caller that leaves before the yes has sent nothing. After it, the work has the configured time to end.
/// Each user may have kMostOfUser events under way, all together kMost; one more is refused.
class HelperService {
 public:
  static constexpr std::size_t kMostOfUser = 2;
  static constexpr std::size_t kMost = 16;

  HelperService(std::unique_ptr<sdbus::IConnection> connection, HelperIdentity identity,
                HelperConfiguration configuration, HelperLog& log);
  ~HelperService();
  HelperService(const HelperService&) = delete;
  HelperService& operator=(const HelperService&) = delete;

  /// Takes the name and serves until somebody who may closes it, `stopSignal` becomes readable, or the bus is
  /// gone. After a stop what runs is killed and answered. False if there is no bus or no name (any more).
  bool run(int stopSignal);

 private:
  class Core;
  std::unique_ptr<Core> core_;
};

}  // namespace sorrel::helper
