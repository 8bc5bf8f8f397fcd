#pragma once

#include <concepts>
#include <cstddef>
#include <functional>
#include <iosfwd>

#include "SorrelFramework/Model/Enumerations.hpp"

namespace sorrel {

/// An integer field that reports each assignment to its record, even if the value stays the same. It has the
/// operators of an integer; each writing operator counts as one assignment. A copy of the field is a plain
/// number that reports to no record: `auto id = file.finderID` stays valid without the record.
template <class Record>
class Observed {
 public:
  Observed(const Observed& other) noexcept : value_(other.value_) {}
  Observed& operator=(const Observed& other) { return *this = other.value_; }
  Observed& operator=(Integer value) {
    value_ = value;
    if (record_ != nullptr) record_->finderIDWasSet();
    return *this;
  }
  operator Integer() const noexcept { return value_; }

  Observed& operator+=(Integer value) { return *this = value_ + value; }
  Observed& operator-=(Integer value) { return *this = value_ - value; }
  Observed& operator*=(Integer value) { return *this = value_ * value; }
  Observed& operator/=(Integer value) { return *this = value_ / value; }
  Observed& operator%=(Integer value) { return *this = value_ % value; }
  Observed& operator&=(Integer value) { return *this = value_ & value; }
  Observed& operator|=(Integer value) { return *this = value_ | value; }
  Observed& operator^=(Integer value) { return *this = value_ ^ value; }
  Observed& operator<<=(Integer value) { return *this = value_ << value; }
  Observed& operator>>=(Integer value) { return *this = value_ >> value; }
  Observed& operator++() { return *this += 1; }
  Observed& operator--() { return *this -= 1; }
  Integer operator++(int) { return *this += 1, value_ - 1; }
  Integer operator--(int) { return *this -= 1, value_ + 1; }

  /// As with a plain integer, a text that is not a number assigns 0.
  template <class Char, class Traits>
  friend std::basic_istream<Char, Traits>& operator>>(std::basic_istream<Char, Traits>& in, Observed& field) {
    Integer value = field;
    if (in >> value || value != field) field = value;
    return in;
  }

  friend void swap(Observed& a, Observed& b) { exchange(a, b); }
  /// With the field of another kind of record.
  template <class Other>
  requires(!std::same_as<Other, Record>) friend void swap(Observed& a, Observed<Other>& b) { exchange(a, b); }
  friend void swap(Observed& a, Integer& b) { exchange(a, b); }
  friend void swap(Integer& a, Observed& b) { exchange(b, a); }

 private:
  friend Record;
  static void exchange(Observed& a, auto& b) {
    const Integer value = a;
    a = static_cast<Integer>(b);
    b = value;
  }

  Observed(Record& record, Integer value) noexcept : record_(&record), value_(value) {}

  Record* record_ = nullptr;  // null: this object is a copy
  Integer value_;
};

}  // namespace sorrel

template <class Record>
struct std::hash<sorrel::Observed<Record>> {
  std::size_t operator()(const sorrel::Observed<Record>& field) const noexcept {
    return std::hash<sorrel::Integer>()(field);
  }
};
