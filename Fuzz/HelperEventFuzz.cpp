// Any bytes as an event to the root program: if they are accepted, the answer is well-formed and lists each
// path.
#include "Fuzz/Require.hpp"
#include "Helper/EventForm.hpp"
#include "Helper/Reply.hpp"
#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/HelpTool/SealedMemory.hpp"

using namespace sorrel;
using namespace sorrel::helper;
using sorrel::fuzz::require;

namespace {

constexpr std::size_t kMost = HelperLimits::bytesOf(HelperMessage::Kind::Reply);

void checkReply(const EventForm& form, const Reply& reply, std::size_t expected) {
  constexpr auto kKind = HelperMessage::Kind::Reply;
  const auto memory = SealedMemory::map(reply.message.get(), kMost);
  require(memory.has_value(), "a reply is sealed");
  const auto view = MessageView::of(memory->bytes(), kKind);
  require(view.has_value(), "a reply is sound");
  require(view->dictionary().size() == expected, "a reply lists the paths");
  for (const MessageView::Entry& entry : view->dictionary()) {
    bool hasStatus = false;
    bool hasPath = false;
    for (const MessageView::Entry& word : entry.below) {
      hasStatus = hasStatus || word.key == "DeleteStatus";
      hasPath = hasPath || word.key == "Path";
    }
    require(hasStatus, "each path has its status");
    require(hasPath == (form.kind == HelperHanldeEventID::Shred), "a path that was to be shredded is named");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view bytes = fuzz::textOf(data + 1, size - 1);
  const auto event = MessageView::of(bytes, HelperMessage::Kind::Event);
  if (!event.has_value()) return 0;
  const auto form = EventForm::of(static_cast<std::int8_t>(data[0]), *event);
  if (!form.has_value()) return 0;
  const auto operation = form->operation.has_value() ? static_cast<std::int32_t>(*form->operation) : -1;
  const auto announced = EventForm::announced(static_cast<std::int8_t>(data[0]), operation,
                                              static_cast<std::uint32_t>(form->paths));
  require(announced == form, "an event can be announced");
  checkReply(*form, Reply::of(*form, *event, ResultTable(event->dictionary().size()), {}, kMost),
             form->paths);
  ResultTable results(event->dictionary().size());
  for (const MessageView::Entry& entry : event->dictionary()) {
    if (entry.index % 2 == 0) results.set(entry.index, HelperEventErrorID::DeleteError, entry.key);
  }
  checkReply(*form, Reply::of(*form, *event, results, {false, 1}, kMost), form->paths);
  return 0;
}
