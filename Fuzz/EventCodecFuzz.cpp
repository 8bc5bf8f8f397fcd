// Any bytes as an event or a reply: they give a message or nothing, the same result as an independent reader,
// and each message has exactly one encoding.
#include "Fuzz/PlainReader.hpp"
#include "Fuzz/Require.hpp"
#include "SorrelFramework/HelpTool/EventCodec.hpp"

using namespace sorrel;
using sorrel::fuzz::require;

namespace {

void checkLimits(const HelperDictionary& dictionary, int depth) {
  require(depth <= HelperLimits::depth, "no dictionary is too deep");
  require(dictionary.size() <= HelperLimits::paths, "no dictionary is too long");
  for (const auto& [key, value] : dictionary) {
    require(key.size() <= HelperLimits::text, "no key is too long");
    if (const HelperDictionary* below = value.asDictionary()) checkLimits(*below, depth + 1);
  }
}

void check(std::string_view bytes, HelperMessage::Kind kind) {
  const std::optional<HelperMessage> message = decodeHelperMessage(bytes, kind);
  require(message == fuzz::PlainReader(bytes, kind).message(), "a plain reader sees the same");
  if (!message.has_value()) return;
  require(message->kind == kind, "the kind is the one that was asked for");
  if (message->dictionary.has_value()) checkLimits(*message->dictionary, 1);
  require(encodeHelperMessage(*message) == bytes, "a message comes back as the same bytes");
  const HelperMessage copy = *message;
  require(copy == *message, "a copy is equal");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes = fuzz::textOf(data, size);
  check(bytes, HelperMessage::Kind::Event);
  check(bytes, HelperMessage::Kind::Reply);
  return 0;
}
