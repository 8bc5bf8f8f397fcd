#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace sorrel::test {

/// Its name on the bus.
inline constexpr const char* kPolkitName = "org.freedesktop.PolicyKit1";

/// A stand-in for polkit: records the requests, and answers when the test says so.
class ScriptedPolkit {
 public:
  struct Question {
    std::string subjectKind;
    std::string subjectName;
    std::string action;
    std::map<std::string, std::string> details;
    std::uint32_t flags = 0;
    std::string sender;
  };
  enum class Mode {
    Yes,
    No,             ///< the user closes the dialog
    WrongPassword,  ///< a password could authorise it, and none was right
    NoAgent,        ///< a password could authorise it, and no program can ask for it
    NeverAsked,     ///< a rule refuses it
    LateYes,        ///< no to the question that may ask the user, yes to the one after it
    Error,
    Wait,
    YesToFirst,  ///< to the connection that asked first
  };

  ScriptedPolkit(const std::string& address, Mode mode);
  ~ScriptedPolkit();
  [[nodiscard]] std::vector<Question> questions() const;
  [[nodiscard]] bool waitForQuestions(std::size_t count) const;
  [[nodiscard]] std::vector<std::string> cancellations() const;
  void setMode(Mode mode);
  /// Answers the waiting requests.
  void answerAll(bool isAuthorised);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace sorrel::test
