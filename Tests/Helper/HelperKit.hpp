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
/// What an application brings along, on that machine: install-helper and its folder "helper".
inline const std::string kBundle = "/mnt/bundle";

/// Why the tests of the real helper can't run here; "" if they can. The first call leaves the mount table of
/// everybody else and lays a layer of its own over /usr and /etc, so that whatever this process and its
/// children write there is theirs alone and gone with them.
const std::string& whyNoMachine();

/// Users of that machine without any right; "user10001" and so on by name.
inline constexpr std::uint32_t kAlice = 10001;
inline constexpr std::uint32_t kBob = 10002;
inline constexpr std::uint32_t kCarol = 10003;

/// A reply, as it came.
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
    std::string rules;                      ///< body of the function that the real one asks
    std::string configuration;              ///< helper.conf
    std::string tracer;                     ///< what the helper is started through
    std::vector<std::string> withoutRules;  ///< parts of the helper's policy of the bus, taken out of it
    std::string otherRules;                 ///< of the default policy of another package
  };

  explicit HelperMachine(const Setup& setup);
  ~HelperMachine();
  HelperMachine(const HelperMachine&) = delete;
  HelperMachine& operator=(const HelperMachine&) = delete;

  [[nodiscard]] const std::string& address() const { return address_; }
  [[nodiscard]] ScriptedPolkit& polkit() { return *polkit_; }
  /// A folder that everybody may enter.
  [[nodiscard]] const TemporaryFolder& folder() const { return folder_; }

  [[nodiscard]] std::shared_ptr<HelperConnection> connect() const;
  /// Sends one event on a connection of its own and waits for the reply.
  Answer ask(std::int32_t id, const HelperDictionary& event) const;
  /// The same as `uid`, in a child process.
  Answer askAs(std::uint32_t uid, std::int32_t id, const HelperDictionary& event) const;
  /// Has the helper run an event of these bytes, on a RawCaller.
  Answer askRaw(std::int32_t id, const std::string& message) const;

  /// What the bus and the helper have written to their standard error.
  [[nodiscard]] std::string log() const;
  [[nodiscard]] bool waitForLog(const std::string& text) const;
  /// The helper's process; -1 if none runs.
  [[nodiscard]] pid_t helper() const;
  /// Sends a signal to it; to a helper, not to what it is started through.
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

/// The bytes of an event, with the views that this process has of its paths.
std::string codedEvent(const HelperDictionary& event);
/// Sends one event over `connection`; the future gets the reply.
std::future<Answer> send(HelperProtocol& helper, std::int32_t id, const HelperDictionary& event);
/// The reply, or one that is not there after five times kPatience: some are large.
Answer take(std::future<Answer> reply);

}  // namespace sorrel::test
