#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include "Tests/Support/ForkedChild.hpp"

namespace sorrel::test {

/// If the test runs as root, who can read everything: makes all threads of the process act as another user.
class ActingAsPlainUser {
 public:
  ActingAsPlainUser() : own_(::geteuid()) { EXPECT_EQ(::seteuid(own_ == 0 ? kPlainUser : own_), 0); }
  ~ActingAsPlainUser() { EXPECT_EQ(::seteuid(own_), 0); }
  ActingAsPlainUser(const ActingAsPlainUser&) = delete;
  ActingAsPlainUser& operator=(const ActingAsPlainUser&) = delete;

 private:
  uid_t own_;
};

}  // namespace sorrel::test
