#pragma once

#include <cstdint>
#include <string>

namespace sorrel {

/// "0 B", "640 B", "1.5 KiB", "3.0 GiB": units of 1024 with one decimal.
std::string sizeText(std::int64_t bytes);

}  // namespace sorrel
