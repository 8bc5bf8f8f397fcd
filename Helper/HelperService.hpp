#pragma once

#include <chrono>
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

/// Identity and settings of the service.
struct HelperIdentity {
  std::string service;  ///< its name on the bus
  std::string version;
  /// True if another program has replaced this one on the disk; may be empty.
  std::function<bool()> isReplaced;
  /// Another connection to the bus, over which the service checks that no descriptor can reach it; null for
  /// no check. Used at the start only.
  std::shared_ptr<sdbus::IConnection> probe;
  /// How long questions to users may delay the end of an idle helper.
  std::chrono::seconds question{300};
};

/// The service on the bus, with the methods of HelperWireNames. An event takes two calls. Begin announces its
/// kind and size: the bus reports the caller's user, polkit authorises the event or not, and an authorised
/// caller gets memory of this process. Run seals that memory, checks every byte of it and forks a worker. No
/// data of an event is in this process before the authorisation.
///
/// A user has at most one active event. An event ends at once when its caller leaves or calls Stop; a ticket
/// that is not used within kFill expires. Every call is answered exactly once.
///
/// Without authorised work for the configured time the service releases its name and ends, so that the next
/// call starts the program that is installed by then; it ends sooner if that is another one. Questions
/// without an answer by then, and calls that were delivered before the name was free, are refused with
/// HelperRefusal::closing, which sends their callers to the next helper.
class HelperService {
 public:
  /// Reads the current configuration; called at the start and before the work on each event.
  using Configure = std::function<const HelperConfiguration&()>;

  HelperService(std::unique_ptr<sdbus::IConnection> connection, HelperIdentity identity, Configure configure,
                HelperLog& log);
  ~HelperService();
  HelperService(const HelperService&) = delete;
  HelperService& operator=(const HelperService&) = delete;

  /// Takes the name and serves until the helper is closed, has been idle, `stopSignal` becomes readable, or
  /// the bus is gone. After a stop, running workers are killed and their events answered. False if there is
  /// no bus, the name is not available or is lost, or the bus would let descriptors through.
  bool run(int stopSignal);

  /// How long a caller may take to fill its memory.
  static constexpr std::chrono::seconds kFill{60};

 private:
  class Core;
  std::unique_ptr<Core> core_;
};

}  // namespace sorrel::helper
