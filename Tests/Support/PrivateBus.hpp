#pragma once

#include <memory>
#include <string>
#include <thread>

#include "SorrelFramework/Platform/Machine/ChildProcess.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::test {

/// A message bus of one test: a dbus-daemon for all processes of this user.
class PrivateBus {
 public:
  /// Returns when the bus accepts connections.
  PrivateBus();
  ~PrivateBus();
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  [[nodiscard]] const std::string& address() const { return address_; }

  /// The folder of its socket; closed to other users.
  [[nodiscard]] const std::string& folder() const { return folder_.path(); }

  /// Makes the bus start a service on demand: a program of /bin/sh with these commands.
  void addService(const std::string& name, const std::string& commands) const;

  /// Ends the bus, with all connections to it.
  void stop();

 private:
  TemporaryFolder folder_;
  std::string address_;
  std::unique_ptr<ChildProcess> daemon_;
  std::thread reader_;
};

}  // namespace sorrel::test
