#pragma once

#include <sys/types.h>
#include <TestPlaces.hpp>

#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "SorrelFramework/HelpTool/DBusHelperConnection.hpp"
#include "SorrelFramework/HelpTool/HelperProtocol.hpp"
#include "Tests/Helper/ScriptedPolkit.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::test {

inline const std::string kService = SORREL_HELPER_SERVICE;
/// The files that an application ships, on that machine: install-helper and its folder "helper".
inline const std::string kBundle = "/mnt/bundle";

/// Why the tests of the real helper can't run here; "" if they can. The first call enters a private mount
/// table and mounts a layer over /usr and /etc, so that everything this process and its children write there
/// is visible to them only, and temporary.
const std::string& whyNoMachine();

/// Users of that machine without any permissions; named "user10001" and so on.
inline constexpr std::uint32_t kAlice = 10001;
inline constexpr std::uint32_t kBob = 10002;
inline constexpr std::uint32_t kCarol = 10003;

/// A reply, as it was received.
struct Answer {
  bool isThere = false;
  bool flag = false;
  std::int32_t code = -1;
  HelperDictionary dictionary;
  std::string refusal;  ///< of a RawCaller: why there is none
};

/// A system bus with the helper as install-helper installs it, started by the bus on demand.
class HelperMachine {
 public:
  enum class Polkit { Real, Scripted, None };
  struct Setup {
    Polkit polkit = Polkit::Scripted;
    ScriptedPolkit::Mode mode = ScriptedPolkit::Mode::Yes;
    std::string rules;                      ///< body of the function that the real polkit calls
    std::string configuration;              ///< helper.conf
    std::string tracer;                     ///< the command that starts the helper
    std::vector<std::string> withoutRules;  ///< parts removed from the helper's bus policy
    std::string otherRules;                 ///< added to the default policy, as by another package
  };

  explicit HelperMachine(const Setup& setup);
  ~HelperMachine();
  HelperMachine(const HelperMachine&) = delete;
  HelperMachine& operator=(const HelperMachine&) = delete;

  [[nodiscard]] const std::string& address() const { return address_; }
  [[nodiscard]] ScriptedPolkit& polkit() { return *polkit_; }
  /// A folder that every user may enter.
  [[nodiscard]] const TemporaryFolder& folder() const { return folder_; }

  [[nodiscard]] std::shared_ptr<HelperConnection> connect() const;
  /// Sends one event on a connection of its own and waits for the reply.
  Answer ask(std::int32_t id, const HelperDictionary& event) const;
  /// The same as `uid`, in a child process.
  Answer askAs(std::uint32_t uid, std::int32_t id, const HelperDictionary& event) const;
  /// Makes the helper run an event of these bytes, on a RawCaller.
  Answer askRaw(std::int32_t id, const std::string& message) const;

  /// The standard error output of the bus and the helper.
  [[nodiscard]] std::string log() const;
  [[nodiscard]] bool waitForLog(const std::string& text) const;
  /// The helper's process; -1 if none runs.
  [[nodiscard]] pid_t helper() const;
  /// Sends a signal to the helper, not to the command that started it.
  void kill(int signal) const;
  [[nodiscard]] bool waitUntilHelperIsGone() const;

 private:
  void startBus(const Setup& setup);
  void writeFiles(const Setup& setup) const;

  TemporaryFolder folder_;
  std::string address_;
  pid_t daemon_ = -1;
  std::unique_ptr<ScriptedPolkit> polkit_;
};

/// inChild() as that user.
std::string inUser(std::uint32_t uid, const std::function<std::string()>& work);

/// The bytes of an event, with this process's views of its paths.
std::string codedEvent(const HelperDictionary& event);
/// Sends one event over `connection`; the future gets the reply.
std::future<Answer> send(HelperProtocol& helper, std::int32_t id, const HelperDictionary& event);
/// The reply, or none after five times kPatience: some are large.
Answer take(std::future<Answer> reply);

}  // namespace sorrel::test
