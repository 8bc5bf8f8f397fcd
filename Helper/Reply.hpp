#pragma once

#include <cstdint>
#include <string_view>

#include "Helper/EventForm.hpp"
#include "Helper/EventRunner.hpp"
#include "Helper/ResultTable.hpp"
#include "SorrelFramework/Platform/FileDescriptor.hpp"

namespace sorrel::helper {

/// The texts that a caller gets where no other is known. They tell nothing about a path.
inline constexpr std::string_view kNotAuthorisedText = "The operation was not authorised.";
inline constexpr std::string_view kUnfinishedText = "The operation was not finished.";

/// What goes back to the caller.
struct Reply {
  bool flag = false;
  std::int32_t code = static_cast<std::int32_t>(HelperEventErrorID::NoCause);
  FileDescriptor message;  ///< sealed; not open if the system has no memory for it

  /// Nothing of an event was done, and nothing about its paths is said. Takes no memory, as every reply
  /// without entries.
  static Reply refusedWhole();
  /// Nothing of an event was done; each path gets its entry.
  static Reply refused(const EventForm& form, const MessageView& event);
  /// A plain answer without a dictionary's entries.
  static Reply plain(bool flag, HelperEventErrorID code);
  /// The forms are those of HelperProtocol; of Delete and Shred, where nobody reads the keys, they are
  /// running numbers. A path without a result has failed. If the reply would not fit its caps, the results'
  /// own texts are left out; without them every reply fits.
  static Reply of(const EventForm& form, const MessageView& event, const ResultTable& results,
                  const EventOutcome& outcome);
};

}  // namespace sorrel::helper
