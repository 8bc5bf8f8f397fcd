// The binary form, read and written here rather than by libplist 2.2.0. To read it safely every offset,
// count, reference, cycle and the size of the expanded tree have to be checked first; after that the decoding
// is a dozen lines more, while the library would parse the file again recursively and trust its sizes. The
// library's writer would lose contents of other programs' files: dates outside 1933-2069, texts with a NUL.
#include <algorithm>
#include <bit>

#include "SorrelFramework/Platform/PropertyLists/PropertyListBinaryFormat.hpp"
#include "SorrelFramework/Platform/PropertyLists/PropertyListForms.hpp"
#include "SorrelFramework/Platform/Text/Text.hpp"
#include "SorrelFramework/Platform/Text/UTF.hpp"

namespace sorrel {

using namespace propertylist;

namespace {

/// A list that shares its objects grows, because each use gets a copy. The allowed size of the tree depends
/// on the file's, so that a few bytes can't request a gigabyte.
constexpr std::size_t kPayloadLimit = kPropertyListByteLimit * 4;
constexpr std::size_t kPayloadAtLeast = std::size_t{1} << 20;
constexpr std::size_t kPayloadPerByte = 64;
constexpr std::size_t kNodesAtLeast = std::size_t{1} << 16;
constexpr std::size_t kNodesPerByte = 256;
/// Arrays may overlap or contain one another, so that the sum of their counts may far exceed the size of the
/// file: memory beyond this is allocated only as the items are read.
constexpr std::size_t kReservedAtMost = 1024;

std::uint64_t bigEndian(std::string_view bytes) {
  std::uint64_t value = 0;
  for (const char byte : bytes) value = value << 8 | static_cast<unsigned char>(byte);
  return value;
}

class BinaryReader {
 public:
  explicit BinaryReader(std::string_view bytes)
      : bytes_(bytes),
        nodeLimit_(std::min(kPropertyListNodeLimit, kNodesAtLeast + kNodesPerByte * bytes.size())),
        payloadLimit_(std::min(kPayloadLimit, kPayloadAtLeast + kPayloadPerByte * bytes.size())) {}

  std::optional<PropertyList> read() {
    if (!readTrailer()) return std::nullopt;
    return object(top_, 1);
  }

 private:
  /// An object without its marker: `size` is the low half of the marker or the count after it.
  struct Head {
    unsigned kind = 0;
    unsigned low = 0;
    std::uint64_t count = 0;
    std::size_t body = 0;
  };

  bool readTrailer() {
    if (bytes_.size() < kHeader.size() + kTrailerSize + 2 || bytes_.size() > kPropertyListByteLimit)
      return false;
    const std::string_view trailer = bytes_.substr(bytes_.size() - kTrailerSize);
    offsetSize_ = static_cast<unsigned char>(trailer[6]);
    refSize_ = static_cast<unsigned char>(trailer[7]);
    objectCount_ = bigEndian(trailer.substr(8, 8));
    top_ = bigEndian(trailer.substr(16, 8));
    table_ = bigEndian(trailer.substr(24, 8));
    const std::size_t tableEnd = bytes_.size() - kTrailerSize;
    if (offsetSize_ < 1 || offsetSize_ > 8 || refSize_ < 1 || refSize_ > 8) return false;
    if (table_ <= kHeader.size() || table_ > tableEnd) return false;
    if (objectCount_ > kPropertyListNodeLimit || objectCount_ > (tableEnd - table_) / offsetSize_)
      return false;
    onPath_.resize(objectCount_);
    return top_ < objectCount_;
  }

  /// Reads the marker of object `ref`, and checks that the whole object lies before the offset table.
  std::optional<Head> head(std::uint64_t ref) const {
    if (ref >= objectCount_) return std::nullopt;
    const std::uint64_t offset = bigEndian(bytes_.substr(table_ + ref * offsetSize_, offsetSize_));
    if (offset < kHeader.size() || offset >= table_) return std::nullopt;
    const unsigned marker = static_cast<unsigned char>(bytes_[offset]);
    Head head{marker >> 4, marker & 0xF, marker & 0xF, offset + 1};
    const bool counted = head.kind >= kData && head.kind != kUID;
    if (counted && head.low == kLongCount && !readLongCount(head)) return std::nullopt;
    const std::optional<std::uint64_t> unit = unitSize(head);
    if (!unit.has_value()) return std::nullopt;
    const std::uint64_t room = table_ - head.body;
    if (*unit != 0 && head.count > room / *unit) return std::nullopt;
    return head;
  }

  bool readLongCount(Head& head) const {
    if (head.body >= table_) return false;
    const unsigned marker = static_cast<unsigned char>(bytes_[head.body]);
    const std::size_t width = std::size_t{1} << (marker & 0xF);
    if (marker >> 4 != kInteger || width > 8 || width > table_ - head.body - 1) return false;
    head.count = bigEndian(bytes_.substr(head.body + 1, width));
    head.body += 1 + width;
    return true;
  }

  /// Bytes that each of `count` units takes; corrects `count` for objects of a fixed size.
  std::optional<std::uint64_t> unitSize(Head& head) const {
    switch (head.kind) {
      case kSimple:
        head.count = 0;
        return head.low == kFalse || head.low == kTrue ? std::optional<std::uint64_t>(0) : std::nullopt;
      case kInteger:
        head.count = std::uint64_t{1} << head.low;
        return head.low <= 4 ? std::optional<std::uint64_t>(1) : std::nullopt;
      case kReal:
        head.count = std::uint64_t{1} << head.low;
        return head.low == 2 || head.low == 3 ? std::optional<std::uint64_t>(1) : std::nullopt;
      case kDate:
        head.count = 8;
        return head.low == 3 ? std::optional<std::uint64_t>(1) : std::nullopt;
      case kUID:
        head.count = head.low + 1;
        return head.low < 8 ? std::optional<std::uint64_t>(1) : std::nullopt;
      case kData:
      case kASCII:
      case kUTF8:
        return 1;
      case kUTF16:
        return 2;
      case kArray:
        return refSize_;
      case kDictionary:
        return 2 * static_cast<std::uint64_t>(refSize_);
      default:  // sets and the null object are not valid in a property list
        return std::nullopt;
    }
  }

  std::optional<PropertyList> object(std::uint64_t ref, std::size_t depth) {
    const std::optional<Head> head = this->head(ref);
    if (!head.has_value() || ++nodes_ > nodeLimit_) return std::nullopt;
    if (head->kind != kArray && head->kind != kDictionary) return scalar(*head);
    if (depth > kPropertyListDepthLimit || onPath_[ref]) return std::nullopt;
    onPath_[ref] = true;
    std::optional<PropertyList> list = head->kind == kArray ? array(*head, depth) : dictionary(*head, depth);
    onPath_[ref] = false;
    return list;
  }

  std::uint64_t refAt(std::size_t body, std::uint64_t index) const {
    return bigEndian(bytes_.substr(body + index * refSize_, refSize_));
  }

  std::optional<PropertyList> array(const Head& head, std::size_t depth) {
    if (head.count > nodeLimit_ - nodes_) return std::nullopt;
    PropertyList::Array values;
    values.reserve(std::min<std::uint64_t>(head.count, kReservedAtMost));
    for (std::uint64_t i = 0; i < head.count; ++i) {
      std::optional<PropertyList> value = object(refAt(head.body, i), depth + 1);
      if (!value.has_value()) return std::nullopt;
      values.push_back(std::move(*value));
    }
    return PropertyList(std::move(values));
  }

  std::optional<PropertyList> dictionary(const Head& head, std::size_t depth) {
    PropertyListDictionary values;
    for (std::uint64_t i = 0; i < head.count; ++i) {
      std::optional<PropertyList> key = object(refAt(head.body, i), depth + 1);
      if (!key.has_value() || key->asString() == nullptr) return std::nullopt;
      std::optional<PropertyList> value = object(refAt(head.body, head.count + i), depth + 1);
      if (!value.has_value()) return std::nullopt;
      values.set(*key->asString(), std::move(*value));
    }
    return PropertyList(std::move(values));
  }

  std::optional<PropertyList> scalar(const Head& head) {
    const std::size_t width = head.kind == kUTF16 ? 2 : 1;
    const std::string_view body = bytes_.substr(head.body, head.count * width);
    payload_ += body.size();
    if (payload_ > payloadLimit_) return std::nullopt;
    switch (head.kind) {
      case kSimple:
        return PropertyList(head.low == kTrue);
      case kInteger:
        return integer(body);
      case kReal:
        return PropertyList(body.size() == 4
                                ? double{std::bit_cast<float>(static_cast<std::uint32_t>(bigEndian(body)))}
                                : std::bit_cast<double>(bigEndian(body)));
      case kDate:
        return PropertyList::dateSince2001(std::bit_cast<double>(bigEndian(body)));
      case kUID:
        return PropertyList(PropertyList::UID{bigEndian(body)});
      case kData:
        return PropertyList(PropertyList::Data(body.begin(), body.end()));
      case kUTF16:
        return utf16(body);
      default:
        return text(head.kind, body);
    }
  }

  static std::optional<PropertyList> integer(std::string_view body) {
    // One, two and four bytes are unsigned, eight are signed; sixteen are for unsigned values above that
    // range.
    if (body.size() < 8) return PropertyList(bigEndian(body));
    const std::uint64_t low = bigEndian(body.substr(body.size() - 8));
    if (body.size() == 8) return PropertyList(static_cast<std::int64_t>(low));
    const std::uint64_t high = bigEndian(body.substr(0, 8));
    if (high == 0) return PropertyList(low);
    const auto negative = static_cast<std::int64_t>(low);
    if (high == ~std::uint64_t{0} && negative < 0) return PropertyList(negative);
    return std::nullopt;
  }

  static std::optional<PropertyList> utf16(std::string_view body) {
    std::u16string units(body.size() / 2, u'\0');
    for (std::size_t i = 0; i < units.size(); ++i)
      units[i] = static_cast<char16_t>(bigEndian(body.substr(2 * i, 2)));
    return PropertyList(utf8FromUTF16(units));
  }

  static std::optional<PropertyList> text(unsigned kind, std::string_view body) {
    if (!isValidUTF8(body)) return std::nullopt;
    if (kind == kASCII) {
      for (const char byte : body) {
        if (static_cast<signed char>(byte) < 0) return std::nullopt;
      }
    }
    return PropertyList(body);
  }

  std::string_view bytes_;
  std::size_t nodeLimit_;
  std::size_t payloadLimit_;
  std::size_t offsetSize_ = 0;
  std::size_t refSize_ = 0;
  std::uint64_t objectCount_ = 0;
  std::uint64_t top_ = 0;
  std::uint64_t table_ = 0;
  std::size_t nodes_ = 0;
  std::size_t payload_ = 0;
  std::vector<bool> onPath_;  // the containers on the current path: meeting one again is a cycle
};

}  // namespace

std::optional<PropertyList> propertylist::parseBinary(std::string_view bytes) {
  return BinaryReader(bytes).read();
}

}  // namespace sorrel
