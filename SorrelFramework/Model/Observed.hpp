#pragma once

#include "SorrelFramework/Model/Enumerations.hpp"

namespace sorrel {

/// An integer field that tells its record about each assignment, also of the value it already has.
template <class Record>
class Observed {
 public:
  Observed(Record& record, Integer value) : record_(record), value_(value) {}
  Observed(const Observed&) = delete;
  Observed& operator=(const Observed& other) { return *this = other.value_; }
  Observed& operator=(Integer value) {
    value_ = value;
    record_.finderIDWasSet();
    return *this;
  }
  operator Integer() const noexcept { return value_; }

 private:
  Record& record_;
  Integer value_;
};

}  // namespace sorrel
