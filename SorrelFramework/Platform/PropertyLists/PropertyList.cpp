#include "SorrelFramework/Platform/PropertyLists/PropertyList.hpp"

#include <cmath>
#include <limits>

namespace sorrel {

namespace {

constexpr double kTwoToThe63 = 9223372036854775808.0;

/// A smaller dictionary is searched linearly; that is faster than maintaining an index.
constexpr std::size_t kIndexedSize = 24;
constexpr std::size_t kNoPosition = std::numeric_limits<std::size_t>::max();

bool sameNumber(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }

}  // namespace

PropertyList::PropertyList() : value_(std::make_unique<Dictionary>()) {}
PropertyList::PropertyList(Array value) : value_(std::make_unique<Array>(std::move(value))) {}
PropertyList::PropertyList(Dictionary value) : value_(std::make_unique<Dictionary>(std::move(value))) {}

PropertyList PropertyList::dateSince2001(double seconds) {
  PropertyList list(false);
  list.value_ = StoredDate{seconds};
  return list;
}

// A worklist, because a recursive copy of a deep list would need a deep stack. Every container gets its full
// size at once, so that the addresses in the worklist stay valid.
PropertyList::PropertyList(const PropertyList& other) : value_(false) {
  std::vector<std::pair<const PropertyList*, PropertyList*>> pending{{&other, this}};
  while (!pending.empty()) {
    const auto [from, to] = pending.back();
    pending.pop_back();
    if (const Array* array = from->asArray()) {
      to->value_ = std::make_unique<Array>(array->size(), PropertyList(false));
      Array& copies = *to->asArray();
      for (std::size_t i = 0; i < copies.size(); ++i) pending.emplace_back(&(*array)[i], &copies[i]);
    } else if (const Dictionary* dictionary = from->asDictionary()) {
      to->value_ = std::make_unique<Dictionary>();
      Dictionary& copy = *to->asDictionary();
      copy.entries_.reserve(dictionary->size());
      for (const auto& entry : *dictionary) copy.entries_.push_back({entry.key, false});
      copy.rebuildIndex();
      for (std::size_t i = 0; i < copy.size(); ++i)
        pending.emplace_back(&dictionary->entries_[i].value, &copy.entries_[i].value);
    } else {
      std::visit(
          [to = to](const auto& value) {
            if constexpr (std::is_copy_constructible_v<std::decay_t<decltype(value)>>) to->value_ = value;
          },
          from->value_);
    }
  }
}

PropertyList& PropertyList::operator=(const PropertyList& other) { return *this = PropertyList(other); }

PropertyList::PropertyList(PropertyList&& other) noexcept : value_(std::move(other.value_)) {
  other.value_ = false;
}

PropertyList& PropertyList::operator=(PropertyList&& other) noexcept {
  // Moved to a local value first: `other` may lie inside the tree that is freed here.
  Value taken = std::exchange(other.value_, Value(false));
  freeIteratively();
  value_ = std::move(taken);
  return *this;
}

PropertyList::~PropertyList() { freeIteratively(); }

void PropertyList::freeIteratively() noexcept {
  std::vector<PropertyList> pending;
  const auto takeContainers = [&pending](PropertyList& node) {
    const auto take = [&pending](PropertyList& child) {
      if (child.asArray() != nullptr || child.asDictionary() != nullptr) pending.push_back(std::move(child));
    };
    if (Array* array = node.asArray()) {
      for (PropertyList& child : *array) take(child);
    } else if (Dictionary* dictionary = node.asDictionary()) {
      for (auto& entry : dictionary->entries_) take(entry.value);
    }
  };
  takeContainers(*this);
  while (!pending.empty()) {
    PropertyList node = std::move(pending.back());
    pending.pop_back();
    takeContainers(node);
  }
}

PropertyList::Type PropertyList::type() const noexcept {
  static constexpr Type kTypes[] = {Type::Boolean, Type::Integer,   Type::Integer, Type::Real,
                                    Type::String,  Type::Data,      Type::Date,    Type::UID,
                                    Type::Array,   Type::Dictionary};
  static_assert(std::size(kTypes) == std::variant_size_v<Value>);
  return kTypes[value_.index()];
}

std::optional<bool> PropertyList::asBoolean() const noexcept {
  const std::optional<std::int64_t> number = asInteger();
  if (number != 0 && number != 1) return std::nullopt;
  return number == 1;
}

std::optional<std::int64_t> PropertyList::asInteger() const noexcept {
  if (const auto* boolean = std::get_if<bool>(&value_)) return *boolean ? 1 : 0;
  if (const auto* integer = std::get_if<std::int64_t>(&value_)) return *integer;
  if (const auto* real = std::get_if<double>(&value_)) {
    if (*real >= -kTwoToThe63 && *real < kTwoToThe63 && std::trunc(*real) == *real)
      return static_cast<std::int64_t>(*real);
  }
  return std::nullopt;
}

std::optional<std::uint64_t> PropertyList::asUnsigned() const noexcept {
  if (const auto* big = std::get_if<Big>(&value_)) return *big;
  const std::optional<std::int64_t> number = asInteger();
  if (number.has_value() && *number >= 0) return static_cast<std::uint64_t>(*number);
  return std::nullopt;
}

std::optional<double> PropertyList::asReal() const noexcept {
  if (const auto* real = std::get_if<double>(&value_)) return *real;
  if (const auto* big = std::get_if<Big>(&value_)) return static_cast<double>(*big);
  if (const std::optional<std::int64_t> number = asInteger()) return static_cast<double>(*number);
  return std::nullopt;
}

std::optional<Date> PropertyList::asDate() const noexcept {
  const std::optional<double> seconds = asSecondsSince2001();
  if (!seconds.has_value()) return std::nullopt;
  return sorrel::Date{*seconds + kSecondsFrom1970To2001};
}

std::optional<double> PropertyList::asSecondsSince2001() const noexcept {
  const auto* date = std::get_if<StoredDate>(&value_);
  return date == nullptr ? std::nullopt : std::optional(date->secondsSince2001);
}

std::optional<PropertyList::UID> PropertyList::asUID() const noexcept {
  const auto* uid = std::get_if<UID>(&value_);
  return uid == nullptr ? std::nullopt : std::optional(*uid);
}

const std::string* PropertyList::asString() const noexcept { return std::get_if<std::string>(&value_); }
const PropertyList::Data* PropertyList::asData() const noexcept { return std::get_if<Data>(&value_); }

const PropertyList::Array* PropertyList::asArray() const noexcept {
  const auto* array = std::get_if<std::unique_ptr<Array>>(&value_);
  return array == nullptr ? nullptr : array->get();
}

PropertyList::Array* PropertyList::asArray() noexcept {
  return const_cast<Array*>(std::as_const(*this).asArray());
}

const PropertyListDictionary* PropertyList::asDictionary() const noexcept {
  const auto* dictionary = std::get_if<std::unique_ptr<Dictionary>>(&value_);
  return dictionary == nullptr ? nullptr : dictionary->get();
}

PropertyListDictionary* PropertyList::asDictionary() noexcept {
  return const_cast<Dictionary*>(std::as_const(*this).asDictionary());
}

const PropertyList* PropertyList::find(std::string_view key) const noexcept {
  const Dictionary* dictionary = asDictionary();
  return dictionary == nullptr ? nullptr : dictionary->find(key);
}

PropertyList* PropertyList::find(std::string_view key) noexcept {
  return const_cast<PropertyList*>(std::as_const(*this).find(key));
}

const std::string* PropertyList::findString(std::string_view key) const noexcept {
  const PropertyList* value = find(key);
  return value == nullptr ? nullptr : value->asString();
}

const PropertyList::Array* PropertyList::findArray(std::string_view key) const noexcept {
  const PropertyList* value = find(key);
  return value == nullptr ? nullptr : value->asArray();
}

PropertyList::Array* PropertyList::findArray(std::string_view key) noexcept {
  return const_cast<Array*>(std::as_const(*this).findArray(key));
}

bool PropertyList::equalsHere(const PropertyList& other) const {
  if (value_.index() != other.value_.index()) return false;
  if (const auto* real = std::get_if<double>(&value_))
    return sameNumber(*real, *std::get_if<double>(&other.value_));
  if (const auto seconds = asSecondsSince2001()) return sameNumber(*seconds, *other.asSecondsSince2001());
  if (const Array* array = asArray()) return array->size() == other.asArray()->size();
  if (const Dictionary* dictionary = asDictionary())
    return dictionary->size() == other.asDictionary()->size();
  return value_ == other.value_;
}

bool operator==(const PropertyList& a, const PropertyList& b) {
  std::vector<std::pair<const PropertyList*, const PropertyList*>> pending{{&a, &b}};
  while (!pending.empty()) {
    const auto [left, right] = pending.back();
    pending.pop_back();
    if (!left->equalsHere(*right)) return false;
    if (const PropertyList::Array* array = left->asArray()) {
      for (std::size_t i = 0; i < array->size(); ++i)
        pending.emplace_back(&(*array)[i], &(*right->asArray())[i]);
    } else if (const PropertyListDictionary* dictionary = left->asDictionary()) {
      for (const auto& entry : *dictionary) {
        const PropertyList* match = right->find(entry.key);
        if (match == nullptr) return false;
        pending.emplace_back(&entry.value, match);
      }
    }
  }
  return true;
}

PropertyListDictionary::PropertyListDictionary() = default;
PropertyListDictionary::PropertyListDictionary(PropertyListDictionary&& other) noexcept = default;
PropertyListDictionary& PropertyListDictionary::operator=(PropertyListDictionary&& other) noexcept = default;
PropertyListDictionary::~PropertyListDictionary() = default;

PropertyListDictionary::PropertyListDictionary(std::initializer_list<Entry> entries) {
  for (const Entry& entry : entries) set(entry.key, entry.value);
}

PropertyListDictionary::PropertyListDictionary(const PropertyListDictionary& other)
    : entries_(other.entries_) {
  rebuildIndex();
}

PropertyListDictionary& PropertyListDictionary::operator=(const PropertyListDictionary& other) {
  return *this = PropertyListDictionary(other);
}

std::size_t PropertyListDictionary::size() const noexcept { return entries_.size(); }

std::vector<PropertyListDictionary::Entry>::const_iterator PropertyListDictionary::begin() const noexcept {
  return entries_.begin();
}

std::vector<PropertyListDictionary::Entry>::const_iterator PropertyListDictionary::end() const noexcept {
  return entries_.end();
}

std::size_t PropertyListDictionary::position(std::string_view key) const noexcept {
  if (index_ != nullptr) {
    const auto found = index_->find(key);
    return found == index_->end() ? kNoPosition : found->second;
  }
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    if (entries_[i].key == key) return i;
  }
  return kNoPosition;
}

const PropertyList* PropertyListDictionary::find(std::string_view key) const noexcept {
  const std::size_t at = position(key);
  return at == kNoPosition ? nullptr : &entries_[at].value;
}

PropertyList* PropertyListDictionary::find(std::string_view key) noexcept {
  return const_cast<PropertyList*>(std::as_const(*this).find(key));
}

PropertyList& PropertyListDictionary::set(std::string key, PropertyList value) {
  if (const std::size_t at = position(key); at != kNoPosition) {
    entries_[at].value = std::move(value);
    return entries_[at].value;
  }
  entries_.push_back({std::move(key), std::move(value)});
  if (index_ != nullptr) {
    index_->emplace(entries_.back().key, entries_.size() - 1);
  } else {
    rebuildIndex();
  }
  return entries_.back().value;
}

bool PropertyListDictionary::erase(std::string_view key) {
  const std::size_t at = position(key);
  if (at == kNoPosition) return false;
  entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(at));
  rebuildIndex();
  return true;
}

void PropertyListDictionary::rebuildIndex() {
  index_.reset();
  if (entries_.size() < kIndexedSize) return;
  index_ = std::make_unique<Index>();
  index_->reserve(entries_.size());
  for (std::size_t i = 0; i < entries_.size(); ++i) index_->emplace(entries_[i].key, i);
}

}  // namespace sorrel
