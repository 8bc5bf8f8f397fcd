#include <bit>
#include <unordered_map>

#include "SorrelFramework/Platform/PropertyLists/PropertyListBinaryFormat.hpp"
#include "SorrelFramework/Platform/PropertyLists/PropertyListForms.hpp"
#include "SorrelFramework/Platform/Text/UTF.hpp"

namespace sorrel {

using namespace propertylist;

namespace {

void appendBigEndian(std::string& out, std::uint64_t value, std::size_t width) {
  for (std::size_t i = width; i-- > 0;) out.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
}

/// The number of bytes (1, 2, 4 or 8) that `value` needs.
std::size_t widthOf(std::uint64_t value) {
  return value <= 0xFF ? 1 : value <= 0xFFFF ? 2 : value <= 0xFFFFFFFF ? 4 : 8;
}

void appendMarker(std::string& out, Marker kind, unsigned low) {
  out.push_back(static_cast<char>(kind << 4 | low));
}

void appendInteger(std::string& out, std::uint64_t value) {
  const std::size_t width = widthOf(value);
  appendMarker(out, kInteger, static_cast<unsigned>(std::countr_zero(width)));
  appendBigEndian(out, value, width);
}

void appendCount(std::string& out, Marker kind, std::size_t count) {
  appendMarker(out, kind, count < kLongCount ? static_cast<unsigned>(count) : kLongCount);
  if (count >= kLongCount) appendInteger(out, count);
}

class BinaryWriter {
 public:
  std::optional<std::string> write(const PropertyList& list) {
    const std::optional<std::uint32_t> top = add(list, 1);
    if (!top.has_value()) return std::nullopt;
    std::string out(kHeader);
    const std::size_t refSize = widthOf(objects_.size() - 1);
    std::vector<std::size_t> offsets;
    offsets.reserve(objects_.size());
    for (const Object& object : objects_) {
      offsets.push_back(out.size());
      out += object.bytes;
      for (const std::uint32_t ref : object.refs) appendBigEndian(out, ref, refSize);
    }
    const std::size_t table = out.size();
    const std::size_t offsetSize = widthOf(table);
    for (const std::size_t offset : offsets) appendBigEndian(out, offset, offsetSize);
    out.append(6, '\0');
    out.push_back(static_cast<char>(offsetSize));
    out.push_back(static_cast<char>(refSize));
    appendBigEndian(out, objects_.size(), 8);
    appendBigEndian(out, *top, 8);
    appendBigEndian(out, table, 8);
    return out;
  }

 private:
  struct Object {
    std::string bytes;                // a whole scalar, or the marker and count of a container
    std::vector<std::uint32_t> refs;  // for a container
  };

  std::optional<std::uint32_t> add(const PropertyList& list, std::size_t depth) {
    if (objects_.size() >= kPropertyListNodeLimit) return std::nullopt;
    if (list.asArray() == nullptr && list.asDictionary() == nullptr) return addScalar(list);
    if (depth > kPropertyListDepthLimit) return std::nullopt;
    const auto index = static_cast<std::uint32_t>(objects_.size());
    objects_.emplace_back();
    std::optional<Object> object = list.asArray() != nullptr ? container(*list.asArray(), depth)
                                                             : container(*list.asDictionary(), depth);
    if (!object.has_value()) return std::nullopt;
    objects_[index] = std::move(*object);
    return index;
  }

  std::optional<Object> container(const PropertyList::Array& values, std::size_t depth) {
    Object object;
    appendCount(object.bytes, kArray, values.size());
    for (const PropertyList& value : values) {
      const std::optional<std::uint32_t> ref = add(value, depth + 1);
      if (!ref.has_value()) return std::nullopt;
      object.refs.push_back(*ref);
    }
    return object;
  }

  std::optional<Object> container(const PropertyListDictionary& values, std::size_t depth) {
    Object object;
    appendCount(object.bytes, kDictionary, values.size());
    for (const auto& entry : values) {
      const std::optional<std::uint32_t> ref = addScalar(entry.key);
      if (!ref.has_value()) return std::nullopt;
      object.refs.push_back(*ref);
    }
    for (const auto& entry : values) {
      const std::optional<std::uint32_t> ref = add(entry.value, depth + 1);
      if (!ref.has_value()) return std::nullopt;
      object.refs.push_back(*ref);
    }
    return object;
  }

  std::optional<std::uint32_t> addScalar(const PropertyList& value) {
    std::optional<std::string> bytes = scalar(value);
    if (!bytes.has_value()) return std::nullopt;
    const auto [known, isNew] = scalars_.try_emplace(*bytes, static_cast<std::uint32_t>(objects_.size()));
    if (isNew) objects_.push_back({std::move(*bytes), {}});
    return known->second;
  }

  static std::optional<std::string> scalar(const PropertyList& value) {
    std::string out;
    switch (value.type()) {
      case PropertyList::Type::Boolean:
        appendMarker(out, kSimple, *value.asBoolean() ? kTrue : kFalse);
        return out;
      case PropertyList::Type::Integer:
        appendWhole(out, value);
        return out;
      case PropertyList::Type::Real:
        appendMarker(out, kReal, 3);
        appendBigEndian(out, std::bit_cast<std::uint64_t>(*value.asReal()), 8);
        return out;
      case PropertyList::Type::Date:
        appendMarker(out, kDate, 3);
        appendBigEndian(out, std::bit_cast<std::uint64_t>(*value.asSecondsSince2001()), 8);
        return out;
      case PropertyList::Type::UID: {
        const std::size_t width = widthOf(value.asUID()->value);
        appendMarker(out, kUID, static_cast<unsigned>(width - 1));
        appendBigEndian(out, value.asUID()->value, width);
        return out;
      }
      case PropertyList::Type::Data:
        appendCount(out, kData, value.asData()->size());
        out.append(value.asData()->begin(), value.asData()->end());
        return out;
      case PropertyList::Type::String:
        return text(*value.asString());
      case PropertyList::Type::Array:
      case PropertyList::Type::Dictionary:
        break;
    }
    return std::nullopt;
  }

  static void appendWhole(std::string& out, const PropertyList& value) {
    if (const std::optional<std::int64_t> number = value.asInteger()) {
      if (*number >= 0) return appendInteger(out, static_cast<std::uint64_t>(*number));
      appendMarker(out, kInteger, 3);
      return appendBigEndian(out, static_cast<std::uint64_t>(*number), 8);
    }
    appendMarker(out, kInteger, 4);
    appendBigEndian(out, 0, 8);
    appendBigEndian(out, *value.asUnsigned(), 8);
  }

  static std::optional<std::string> text(const std::string& text) {
    const std::optional<std::u16string> units = utf16FromUTF8(text);
    if (!units.has_value()) return std::nullopt;
    std::string out;
    // As many units as bytes: pure ASCII.
    if (units->size() == text.size()) {
      appendCount(out, kASCII, text.size());
      return out + text;
    }
    appendCount(out, kUTF16, units->size());
    for (const char16_t unit : *units) appendBigEndian(out, unit, 2);
    return out;
  }

  std::vector<Object> objects_;
  std::unordered_map<std::string, std::uint32_t> scalars_;
};

}  // namespace

std::optional<std::string> writePropertyListBinary(const PropertyList& list) {
  return BinaryWriter().write(list);
}

}  // namespace sorrel
