#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "SorrelFramework/Platform/Digest/MD5Kernels.hpp"

namespace sorrel::test {

/// Calls `check` with each kernel that this processor can run; prints the names of the others.
inline void withEachMD5Kernel(const std::function<void(const MD5Kernel&)>& check) {
  for (const MD5Kernel& kernel : md5Kernels()) {
    SCOPED_TRACE(kernel.name);
    if (kernel.isSupported()) {
      check(kernel);
    } else {
      GTEST_LOG_(INFO) << kernel.name << " is not tried: this processor lacks it";
    }
  }
}

}  // namespace sorrel::test
