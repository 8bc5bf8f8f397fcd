#include "SorrelFramework/Platform/Text/UTF.hpp"

#include <gtest/gtest.h>

namespace sorrel::test {
namespace {

TEST(UTF, textsComeBackFromTheOtherForm) {
  for (const std::string text : {"", "abc", "Grüße", "日本", "a😀b"})
    EXPECT_EQ(utf8FromUTF16(*utf16FromUTF8(text)), text);
  EXPECT_EQ(utf16FromUTF8("😀"), u"\xD83D\xDE00");
  EXPECT_EQ(utf8FromUTF16(std::u16string_view(u"a\0b", 3)), std::string("a\0b", 3));
}

TEST(UTF, nothingForBytesThatAreNoUTF8) {
  for (const char* bytes : {"\xFF", "\xC3", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80"})
    EXPECT_FALSE(utf16FromUTF8(bytes).has_value());
}

TEST(UTF, loneSurrogatesAreReplaced) {
  EXPECT_EQ(utf8FromUTF16(u"a\xD83D"), "a\xEF\xBF\xBD");
  EXPECT_EQ(utf8FromUTF16(u"\xDE00z"), "\xEF\xBF\xBDz");
}

}  // namespace
}  // namespace sorrel::test
