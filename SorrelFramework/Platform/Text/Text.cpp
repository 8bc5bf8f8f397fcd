#include "SorrelFramework/Platform/Text/Text.hpp"

#include <unicode/brkiter.h>
#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/normalizer2.h>
#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

namespace sorrel {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

// Steps of the matching engine, about a millisecond each; and bytes of its backtracking stack.
constexpr std::int32_t kRegexTimeLimit = 5000;
constexpr std::int32_t kRegexStackLimit = 8'000'000;

bool isASCII(std::string_view text) noexcept {
  const char* at = text.data();
  const char* const end = at + text.size();
  for (; end - at >= 8; at += 8) {
    std::uint64_t word = 0;
    std::memcpy(&word, at, sizeof word);
    if ((word & 0x8080808080808080U) != 0) return false;
  }
  return std::all_of(at, end, [](char c) { return (static_cast<unsigned char>(c) & 0x80) == 0; });
}

struct Sequence {
  std::size_t length;
  bool valid;
};

/// The sequence at the head of `text`, which is not empty: a character, or the maximal subpart of an
/// ill-formed one (The Unicode Standard, table 3-7).
Sequence firstSequence(std::string_view text) noexcept {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return {1, true};
  if (lead < 0xC2 || lead > 0xF4) return {1, false};
  const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  // Only the second byte has special bounds: they exclude overlong forms, surrogates and values that are too
  // large.
  unsigned char low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  unsigned char high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  for (std::size_t i = 1; i < length; ++i) {
    if (i == text.size() || byte(i) < low || byte(i) > high) return {i, false};
    low = 0x80;
    high = 0xBF;
  }
  return {length, true};
}

std::size_t validPrefix(std::string_view text) noexcept {
  std::size_t at = 0;
  while (at < text.size()) {
    const Sequence sequence = firstSequence(text.substr(at));
    if (!sequence.valid) break;
    at += sequence.length;
  }
  return at;
}

/// Runs `convert(piece, out)` on each run of valid UTF-8 and `keep(bytes, out)` on each invalid sequence.
template <class Convert, class Keep>
std::string mapPieces(std::string_view text, Convert convert, Keep keep) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const std::size_t valid = validPrefix(text);
    if (valid > 0) convert(text.substr(0, valid), out);
    text.remove_prefix(valid);
    if (text.empty()) break;
    const std::size_t bad = firstSequence(text).length;
    keep(text.substr(0, bad), out);
    text.remove_prefix(bad);
  }
  return out;
}

void append(std::string_view piece, std::string& out) { out.append(piece); }

/// The library counts in 31 bits; text beyond that is ignored.
icu::StringPiece pieceOf(std::string_view text) {
  return {text.data(), static_cast<std::int32_t>(std::min<std::size_t>(text.size(), INT32_MAX))};
}

/// The composed form; bytes that are not UTF-8 are kept, so that different names never become equal.
std::string composed(std::string_view text) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* const nfc = icu::Normalizer2::getNFCInstance(status);
  const auto compose = [nfc](std::string_view piece, std::string& out) {
    UErrorCode failure = U_ZERO_ERROR;
    std::string result;
    icu::StringByteSink<std::string> sink(&result);
    nfc->normalizeUTF8(0, pieceOf(piece), sink, nullptr, failure);
    out += U_SUCCESS(failure) != 0 ? std::string_view(result) : piece;
  };
  if (U_FAILURE(status) != 0) return std::string(text);
  return mapPieces(text, compose, append);
}

icu::UnicodeString utf16(std::string_view text) { return icu::UnicodeString::fromUTF8(pieceOf(text)); }

std::size_t graphemesOf(const icu::UnicodeString& text) {
  UErrorCode status = U_ZERO_ERROR;
  // Creating one is far more expensive than using it; an iterator must not serve two threads.
  thread_local const std::unique_ptr<icu::BreakIterator> characters(
      icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
  if (!characters) return static_cast<std::size_t>(text.countChar32());
  characters->setText(text);
  std::size_t count = 0;
  while (characters->next() != icu::BreakIterator::DONE) ++count;
  // The iterator outlives the text and must not keep a pointer to it.
  static const icu::UnicodeString empty;
  characters->setText(empty);
  return count;
}

}  // namespace

bool isValidUTF8(std::string_view text) noexcept { return isASCII(text) || validPrefix(text) == text.size(); }

std::string replacingInvalidUTF8(std::string_view text) {
  if (isValidUTF8(text)) return std::string(text);
  return mapPieces(text, append, [](std::string_view, std::string& out) { out += kReplacement; });
}

std::size_t graphemeCount(std::string_view text) {
  if (!isASCII(text)) return graphemesOf(utf16(replacingInvalidUTF8(text)));
  std::size_t count = text.size();
  for (std::size_t at = text.find("\r\n"); at != std::string_view::npos; at = text.find("\r\n", at + 2))
    --count;
  return count;
}

bool textEqual(std::string_view a, std::string_view b) {
  return a == b || ((!isASCII(a) || !isASCII(b)) && composed(a) == composed(b));
}

bool textLess(std::string_view a, std::string_view b) {
  // The order of UTF-8 bytes is the order of scalar values.
  return isASCII(a) && isASCII(b) ? a < b : composed(a) < composed(b);
}

std::vector<std::string> componentsSeparatedBy(std::string_view text, std::string_view separator) {
  std::vector<std::string> pieces;
  std::size_t at = 0;
  while (!separator.empty()) {
    const std::size_t end = text.find(separator, at);
    if (end == std::string_view::npos) break;
    pieces.emplace_back(text.substr(at, end - at));
    at = end + separator.size();
  }
  pieces.emplace_back(text.substr(at));
  return pieces;
}

std::string replacingOccurrences(std::string_view text, std::string_view target,
                                 std::string_view replacement) {
  std::string result;
  std::size_t at = 0;
  while (!target.empty()) {
    const std::size_t end = text.find(target, at);
    if (end == std::string_view::npos) break;
    result.append(text.substr(at, end - at)).append(replacement);
    at = end + target.size();
  }
  return result.append(text.substr(at));
}

bool containsText(std::string_view text, std::string_view needle) {
  if (needle.empty()) return false;
  if (text.find(needle) != std::string_view::npos) return true;
  return !isASCII(needle) && composed(text).find(composed(needle)) != std::string::npos;
}

std::string lowercased(std::string_view text) {
  if (isASCII(text)) {
    std::string result(text);
    for (char& c : result) {
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return result;
  }
  const auto lower = [](std::string_view piece, std::string& out) {
    UErrorCode status = U_ZERO_ERROR;
    std::string result;
    icu::StringByteSink<std::string> sink(&result);
    icu::CaseMap::utf8ToLower("", 0, pieceOf(piece), sink, nullptr, status);
    out += U_SUCCESS(status) != 0 ? std::string_view(result) : piece;
  };
  return mapPieces(text, lower, append);
}

std::vector<std::string> regexMatches(std::string_view pattern, std::string_view text) {
  UErrorCode status = U_ZERO_ERROR;
  UParseError where;
  const std::unique_ptr<icu::RegexPattern> compiled(
      icu::RegexPattern::compile(utf16(replacingInvalidUTF8(pattern)), where, status));
  if (U_FAILURE(status) != 0) return {};
  const icu::UnicodeString searched = utf16(replacingInvalidUTF8(text));  // must outlive the matcher
  const std::unique_ptr<icu::RegexMatcher> matcher(compiled->matcher(searched, status));
  if (U_FAILURE(status) != 0) return {};
  matcher->setTimeLimit(kRegexTimeLimit, status);
  matcher->setStackLimit(kRegexStackLimit, status);
  const std::size_t units = std::min(graphemesOf(searched), static_cast<std::size_t>(searched.length()));
  matcher->region(0, static_cast<std::int64_t>(units), status);
  std::vector<std::string> matches;
  while (U_SUCCESS(status) != 0 && matcher->find(status) != 0 && U_SUCCESS(status) != 0) {
    const std::int32_t start = matcher->start(status);
    searched.tempSubStringBetween(start, matcher->end(status)).toUTF8String(matches.emplace_back());
  }
  return matches;
}

}  // namespace sorrel
