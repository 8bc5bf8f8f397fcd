#include "Tests/Support/ScopedVariable.hpp"

#include <stdlib.h>

#include <utility>

namespace sorrel::test {
namespace {

void setVariable(const std::string& name, const char* value) {
  if (value == nullptr) {
    ::unsetenv(name.c_str());
  } else {
    ::setenv(name.c_str(), value, 1);
  }
}

}  // namespace

ScopedVariable::ScopedVariable(std::string name, const char* value) : name_(std::move(name)) {
  if (const char* before = ::getenv(name_.c_str())) before_ = before;
  setVariable(name_, value);
}

ScopedVariable::~ScopedVariable() { setVariable(name_, before_ ? before_->c_str() : nullptr); }

}  // namespace sorrel::test
