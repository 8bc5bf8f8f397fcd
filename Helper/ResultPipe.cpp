#include "Helper/ResultPipe.hpp"

#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace sorrel::helper {
namespace {

constexpr std::uint32_t kEnd = UINT32_MAX;

/// Both ends are one program on one machine, so the record is sent in its memory layout.
struct Record {
  std::uint32_t index = kEnd;
  std::int32_t code = 0;  // the status of a path, or the code of the outcome
  std::uint16_t length = 0;
  std::uint16_t flag = 0;
  std::int32_t peakMemory = 0;  // sent with the outcome only
};

}  // namespace

void ResultPipeWriter::result(std::size_t index, HelperEventErrorID status, std::string_view desc) {
  const std::string_view text = desc.substr(0, kMostResultText);
  const Record record{static_cast<std::uint32_t>(index), static_cast<std::int32_t>(status),
                      static_cast<std::uint16_t>(text.size())};
  std::array<char, sizeof record + kMostResultText> bytes{};
  std::memcpy(bytes.data(), &record, sizeof record);
  std::memcpy(bytes.data() + sizeof record, text.data(), text.size());
  write({bytes.data(), sizeof record + text.size()});
}

void ResultPipeWriter::end(const EventOutcome& outcome) {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const Record record{kEnd, outcome.code, 0, static_cast<std::uint16_t>(outcome.flag ? 1 : 0),
                      static_cast<std::int32_t>(usage.ru_maxrss)};
  std::array<char, sizeof record> bytes{};
  std::memcpy(bytes.data(), &record, sizeof record);
  write({bytes.data(), bytes.size()});
}

void ResultPipeWriter::write(std::string_view bytes) const {
  while (!bytes.empty()) {
    const ssize_t written = ::write(pipe_, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) ::_exit(1);
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

bool ResultPipeReader::take(std::string_view bytes) {
  rest_ += bytes;
  std::string_view left = rest_;
  Record record;
  while (left.size() >= sizeof record) {
    std::memcpy(&record, left.data(), sizeof record);
    if (record.length > kMostResultText || outcome_.has_value()) return false;
    if (left.size() < sizeof record + record.length) break;
    if (record.index == kEnd) {
      outcome_ = EventOutcome{record.flag != 0, record.code};
      peakMemory_ = record.peakMemory;
    } else if (record.code < 0 || record.code > static_cast<std::int32_t>(HelperEventErrorID::MoveFail)) {
      return false;
    } else {
      table_.set(record.index, static_cast<HelperEventErrorID>(record.code),
                 left.substr(sizeof record, record.length));
    }
    left.remove_prefix(sizeof record + record.length);
  }
  rest_.erase(0, rest_.size() - left.size());
  return true;
}

}  // namespace sorrel::helper
