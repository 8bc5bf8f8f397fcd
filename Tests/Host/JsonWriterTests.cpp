#include "Host/JsonWriter.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <string>
#include <utility>

namespace sorrel::cli {
namespace {

/// The document that a writer makes of the calls in `write`.
template <class Write>
std::string written(Write write) {
  std::ostringstream out;
  {
    JsonWriter writer(out);
    write(writer);
  }
  return std::move(out).str();
}

std::string jsonText(const std::string& bytes) {
  return written([&](JsonWriter& writer) { writer.text(bytes); });
}

std::string jsonReal(double value) {
  return written([value](JsonWriter& writer) { writer.real(value); });
}

TEST(JsonWriter, fieldsStandInTheirOrder) {
  EXPECT_EQ(written([](JsonWriter& writer) {
              writer.beginObject().text("b", "x").integer("a", -5).flag("c", true).flag("d", false);
              writer.real("e", 0.25).null("f").json("g", "[]").endObject();
            }),
            R"({"b":"x","a":-5,"c":true,"d":false,"e":0.25,"f":null,"g":[]})");
}

TEST(JsonWriter, commasStandBetweenValuesOnly) {
  EXPECT_EQ(written([](JsonWriter& writer) { writer.beginObject().endObject(); }), "{}");
  EXPECT_EQ(
      written([](JsonWriter& writer) {
        writer.beginList().beginList().endList().beginObject().endObject().integer(1).flag(true).endList();
      }),
      "[[],{},1,true]");
  EXPECT_EQ(written([](JsonWriter& writer) {
              writer.beginObject()
                  .key("a")
                  .beginList()
                  .endList()
                  .key("b")
                  .beginObject()
                  .integer("c", 1)
                  .endObject();
              writer.null("d").endObject();
            }),
            R"({"a":[],"b":{"c":1},"d":null})");
}

TEST(JsonWriter, aDocumentLargerThanTheBufferIsWhole) {
  constexpr int kCount = 50'000;
  const std::string text = written([](JsonWriter& writer) {
    writer.beginList();
    for (int i = 0; i < kCount; ++i) writer.beginObject().integer("i", i).endObject();
    writer.endList();
  });
  const auto document = nlohmann::json::parse(text);
  ASSERT_EQ(document.size(), kCount);
  for (int i = 0; i < kCount; ++i) ASSERT_EQ(document[i]["i"], i);
}

TEST(JsonWriter, everyIntegerIsWrittenWhole) {
  EXPECT_EQ(
      written([](JsonWriter& writer) {
        writer.beginList().integer(std::numeric_limits<std::int64_t>::min()).integer(INT64_MAX).endList();
      }),
      "[-9223372036854775808,9223372036854775807]");
}

TEST(JsonWriter, realsKeepTheirPointAndTheirValue) {
  EXPECT_EQ(jsonReal(0), "0.0");
  EXPECT_EQ(jsonReal(1), "1.0");
  EXPECT_EQ(jsonReal(1795265458.633726), "1795265458.633726");
  EXPECT_EQ(jsonReal(std::nan("")), "null");
  EXPECT_EQ(jsonReal(std::numeric_limits<double>::infinity()), "null");
}

TEST(JsonWriter, textsAreEscapedAndValid) {
  EXPECT_EQ(jsonText(""), R"("")");
  EXPECT_EQ(jsonText("a b~"), R"("a b~")");
  EXPECT_EQ(jsonText("\"\\/"), R"("\"\\/")");
  EXPECT_EQ(jsonText(std::string("\n\t\x01\x7f\0", 5)), "\"\\n\\t\\u0001\x7f\\u0000\"");
  EXPECT_EQ(jsonText("\xc3\xb6"), "\"\xc3\xb6\"");
  EXPECT_EQ(jsonText("a\xff"), "\"a\xef\xbf\xbd\"");
}

TEST(JsonWriter, anyBytesMakeATextThatReadsBack) {
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

}  // namespace
}  // namespace sorrel::cli
