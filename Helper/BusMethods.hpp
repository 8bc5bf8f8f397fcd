#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "Helper/EventForm.hpp"
#include "Helper/Reply.hpp"
#include "SorrelFramework/HelpTool/HelperWireNames.hpp"
#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sdbus {
class Error;
class IObject;
}  // namespace sdbus

namespace sorrel::helper {

/// The answers that a call of Begin may get; one of them is sent.
struct BeginAnswers {
  std::function<void(const std::string& reason)> refuse;
  /// False if there was no memory or no descriptor for it: the caller got an error then.
  std::function<bool(std::uint64_t ticket, const FileDescriptor& memory)> begun;
};

/// The answers that a call of Run may get.
struct RunAnswers {
  std::function<void(const std::string& reason)> refuse;
  /// An error in place of a reply without memory: without its list of failures it would report success.
  std::function<void(const Reply& reply)> finished;
};

/// What the methods of HelperWireNames do.
struct BusMethods {
  std::string version;
  std::string removalAdvice;  ///< the answer to Uninstall
  /// `form` is none if no such event exists.
  std::function<void(BeginAnswers&& answers, const std::optional<EventForm>& form, std::uint64_t bytes)>
      begin;
  std::function<void(RunAnswers&& answers, std::uint64_t ticket)> run;
  std::function<void()> stop;
  std::function<bool()> close;
};
/// Makes the methods of the object do that.
void registerMethods(sdbus::IObject& object, const HelperWireNames& names, const BusMethods& methods);

/// True for errors after which the connection still works.
[[nodiscard]] bool isShortage(const sdbus::Error& error);

}  // namespace sorrel::helper
