#include "Helper/BusMethods.hpp"

#include <sdbus-c++/sdbus-c++.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>
#include <tuple>
#include <utility>

namespace sorrel::helper {
namespace {

using BeginResult = sdbus::Result<std::uint64_t, sdbus::UnixFd>;
using RunResult = sdbus::Result<bool, std::int32_t, sdbus::UnixFd>;

/// The answer when memory or descriptors for a better one are lacking. It is not a refusal: the event may
/// have been executed.
template <class Result>
void returnNoMemory(const Result& result) {
  result.returnError(sdbus::Error("org.freedesktop.DBus.Error.NoMemory", "no memory"));
}

/// False if that was what was returned.
template <class Result, class... Values>
bool returnAll(const Result& result, Values&&... values) {
  try {
    result.returnResults(std::forward<Values>(values)...);
    return true;
  } catch (const sdbus::Error&) {
    returnNoMemory(result);
    return false;
  }
}

template <class Result>
std::function<void(const std::string&)> refusalBy(const std::shared_ptr<Result>& back,
                                                  const std::string& name) {
  return [back, name](const std::string& reason) { back->returnError(sdbus::Error(name, reason)); };
}

BeginAnswers answersOf(BeginResult&& result, const std::string& refusalName) {
  const auto back = std::make_shared<BeginResult>(std::move(result));
  return {refusalBy(back, refusalName), [back](std::uint64_t ticket, const FileDescriptor& memory) {
            return returnAll(*back, ticket, sdbus::UnixFd(memory.get()));
          }};
}

RunAnswers answersOf(RunResult&& result, const std::string& refusalName) {
  const auto back = std::make_shared<RunResult>(std::move(result));
  return {refusalBy(back, refusalName), [back](const Reply& reply) {
            if (!reply.message.isOpen()) return returnNoMemory(*back);
            returnAll(*back, reply.flag, reply.code, sdbus::UnixFd(reply.message.get()));
          }};
}

}  // namespace

void registerMethods(sdbus::IObject& object, const HelperWireNames& names, const BusMethods& methods) {
  const auto add = [&](const char* method, auto&& work) {
    object.registerMethod(method).onInterface(names.interface).implementedAs(std::move(work));
  };
  const std::string refusal = names.refusalName();
  add(HelperWireNames::getHelperVersion, [version = methods.version] { return version; });
  add(HelperWireNames::begin,
      [begin = methods.begin, refusal](BeginResult&& result, std::int32_t event, std::int32_t operation,
                                       std::uint32_t paths, std::uint64_t bytes) {
        begin(answersOf(std::move(result), refusal), EventForm::announced(event, operation, paths), bytes);
      });
  add(HelperWireNames::run, [run = methods.run, refusal](RunResult&& result, std::uint64_t ticket) {
    run(answersOf(std::move(result), refusal), ticket);
  });
  add(HelperWireNames::stop, [stop = methods.stop] { stop(); });
  add(HelperWireNames::closeHelper, [close = methods.close] { return close(); });
  add(HelperWireNames::uninstall, [advice = methods.removalAdvice] { return std::tuple(false, advice); });
  object.finishRegistration();
}

bool isShortage(const sdbus::Error& error) {
  constexpr std::array kShortages = {"org.freedesktop.DBus.Error.NoMemory", "System.Error.ENOBUFS",
                                     "System.Error.EMFILE", "System.Error.ENFILE", "System.Error.EXFULL"};
  return std::ranges::find(kShortages, std::string_view(error.getName())) != kShortages.end();
}

}  // namespace sorrel::helper
