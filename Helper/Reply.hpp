#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Helper/EventForm.hpp"
#include "Helper/EventRunner.hpp"
#include "Helper/ResultTable.hpp"
#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel::helper {

/// The text of a path without a result.
inline constexpr std::string_view kUnfinishedText = "The operation was not finished.";

/// The answer to the caller.
struct Reply {
  bool flag = false;
  std::int32_t code = static_cast<std::int32_t>(HelperEventErrorID::NoCause);
  FileDescriptor message;  ///< sealed; not open if the system has no memory for it
  std::size_t bytes = 0;   ///< bytes of the message that are not shared with other replies

  /// The forms are those of HelperProtocol; the keys for Delete and Shred, which no caller reads, are running
  /// numbers. A path without a result has failed. If the reply would exceed `most` bytes, the results' own
  /// texts are left out; without them HelperCall::mostReplyBytes() are enough. Replies without entries share
  /// their memory.
  static Reply of(const EventForm& form, const MessageView& event, const ResultTable& results,
                  const EventOutcome& outcome, std::size_t most);
};

}  // namespace sorrel::helper
