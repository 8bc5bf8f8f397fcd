#include "Host/JsonObject.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

namespace sorrel::cli {
namespace {

std::string jsonText(const std::string& bytes) {
  std::string out;
  appendJsonText(out, bytes);
  return out;
}

TEST(JsonObject, fieldsStandInTheirOrder) {
  JsonObject object;
  object.text("b", "x")
      .integer("a", -5)
      .flag("c", true)
      .flag("d", false)
      .real("e", 0.25)
      .null("f")
      .raw("g", "[]");
  EXPECT_EQ(object.open(), R"({"b":"x","a":-5,"c":true,"d":false,"e":0.25,"f":null,"g":[])");
  EXPECT_EQ(object.closed(), object.open() + "}");
  EXPECT_EQ(JsonObject().closed(), "{}");
}

TEST(JsonObject, everyIntegerIsWrittenWhole) {
  JsonObject object;
  object.integer("a", std::numeric_limits<std::int64_t>::min()).integer("b", INT64_MAX);
  EXPECT_EQ(object.closed(), R"({"a":-9223372036854775808,"b":9223372036854775807})");
}

TEST(JsonObject, realsKeepTheirPointAndTheirValue) {
  EXPECT_EQ(jsonReal(0), "0.0");
  EXPECT_EQ(jsonReal(1), "1.0");
  EXPECT_EQ(jsonReal(1795265458.633726), "1795265458.633726");
  EXPECT_EQ(jsonReal(std::nan("")), "null");
  EXPECT_EQ(jsonReal(std::numeric_limits<double>::infinity()), "null");
}

TEST(JsonObject, textsAreEscapedAndValid) {
  EXPECT_EQ(jsonText(""), R"("")");
  EXPECT_EQ(jsonText("a b~"), R"("a b~")");
  EXPECT_EQ(jsonText("\"\\/"), R"("\"\\/")");
  EXPECT_EQ(jsonText(std::string("\n\t\x01\x7f\0", 5)), "\"\\n\\t\\u0001\x7f\\u0000\"");
  EXPECT_EQ(jsonText("\xc3\xb6"), "\"\xc3\xb6\"");
  EXPECT_EQ(jsonText("a\xff"), "\"a\xef\xbf\xbd\"");
}

TEST(JsonObject, anyBytesMakeATextThatReadsBack) {
  std::mt19937 random(1);
  for (int round = 0; round < 2000; ++round) {
    std::string ascii(random() % 8, '\0');
    for (char& byte : ascii) byte = static_cast<char>(random() % 128);
    EXPECT_EQ(nlohmann::json::parse(jsonText(ascii)).get<std::string>(), ascii);
    std::string bytes(random() % 8, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random() % 256);
    EXPECT_TRUE(nlohmann::json::accept(jsonText(bytes))) << jsonText(bytes);
  }
}

TEST(JsonObject, listsOfTexts) {
  const auto itself = [](const std::string& text) { return text; };
  EXPECT_EQ(jsonTextList(std::vector<std::string>{}, itself), "[]");
  EXPECT_EQ(jsonTextList(std::vector<std::string>{"a", "\""}, itself), R"(["a","\""])");
}

}  // namespace
}  // namespace sorrel::cli
