#include "Host/RowTitles.hpp"

#include <gtest/gtest.h>

#include <string>

namespace sorrel::cli {
namespace {

TEST(RowTitles, aTitleWithoutAWordOfItsOwnIsVague) {
  for (const char* const title :
       {"", "12", "index", "content-v2", "Cache", "cache2", "a", "ab", "0001.jpg", "A1F0", "data_1.bin",
        ".tmp", "3fa85f64-5717-4562-b3fc-2c963f66afa6", "00deadbeef.png", "v10", "..."}) {
    EXPECT_TRUE(isVague(title)) << title;
  }
}

TEST(RowTitles, aTitleWithAWordOfItsOwnIsNot) {
  for (const char* const title :
       {"mozilla", "mesa_shader_cache", "old holiday.mov", "install.log", "pip", "face", "film2.mov",
        "com.example.browser", "\xe9\x9f\xb3", "\xc3\xa9t\xc3\xa9", "raw\xff"}) {
    EXPECT_FALSE(isVague(title)) << title;
  }
}

}  // namespace
}  // namespace sorrel::cli
