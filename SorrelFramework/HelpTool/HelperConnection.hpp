#pragma once

#include <functional>
#include <memory>
#include <string>

#include "SorrelFramework/HelpTool/HelperProtocol.hpp"

namespace sorrel {

/// A connection to the privileged helper of one service name. Any thread.
class HelperConnection {
 public:
  using Handler = std::function<void()>;

  virtual ~HelperConnection() = default;

  /// `handler` runs when the helper, or the connection to it, is gone: on a thread of the connection, perhaps
  /// more than once. Set it before resume().
  virtual void setInvalidationHandler(Handler handler) = 0;
  /// Opens the connection for use.
  virtual void resume() = 0;
  /// The helper as an object, valid as long as a caller holds it, even without the connection; nothing if the
  /// process that answers is not the helper. `handler` runs on a thread of the connection for each call that
  /// was lost; the reply of such a call never comes. May block while the helper starts.
  [[nodiscard]] virtual std::shared_ptr<HelperProtocol> remoteObjectProxyWithErrorHandler(
      Handler handler) = 0;
  /// Makes the helper end every event of this connection at once. Their replies still come. False if there is
  /// no running event.
  virtual bool stopEvents() { return false; }
};

/// Creates the connection to the helper of a service name; nothing if no connection is possible at all.
using HelperConnector = std::function<std::shared_ptr<HelperConnection>(const std::string& machServiceName)>;

}  // namespace sorrel
