#include "SorrelFramework/Model/IdentityText.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <any>
#include <atomic>
#include <latch>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_set>
#include <utility>
#include <vector>

#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"

namespace sorrel {
namespace {

Ref<FileInformation> makeFile(Integer finderID = 1) {
  return makeRef<FileInformation>(0, finderID, 2, "b", Image(), 3, Date(), URL::fileURL("/a/b", false), "",
                                  true, false, std::any(), Children<FileInformation>(),
                                  Ref<CategoryInformation>(), 1, 0);
}

const std::string kText = "1:2:3:file:///a/b";

TEST(IdentityText, readsLikeAString) {
  const auto file = makeFile();
  const IdentityText& text = file->hashValueString;
  EXPECT_EQ(text.size(), kText.size());
  EXPECT_EQ(text.length(), kText.size());
  EXPECT_FALSE(text.empty());
  EXPECT_EQ(std::string(text.c_str()), kText);
  EXPECT_EQ(text[1], ':');
  EXPECT_EQ(text.at(2), '2');
  EXPECT_EQ(text.front(), '1');
  EXPECT_EQ(text.back(), 'b');
  EXPECT_EQ(text.substr(6), "file:///a/b");
  EXPECT_EQ(text.find(':'), 1U);
  EXPECT_EQ(text.rfind(":"), 10U);
  EXPECT_EQ(text.find("none"), IdentityText::npos);
  EXPECT_EQ(text.compare(kText), 0);
  EXPECT_TRUE(text.starts_with("1:"));
  EXPECT_TRUE(text.ends_with("/b"));
  EXPECT_EQ(std::count(text.begin(), text.end(), '/'), 4);
  std::string copy;
  for (const char c : text) copy += c;
  EXPECT_EQ(copy, kText);
}

TEST(IdentityText, comparesAndAddsLikeAString) {
  const auto file = makeFile();
  const auto& text = file->hashValueString;
  EXPECT_TRUE(text == kText && kText == text && text == kText.c_str() && text != "other");
  EXPECT_TRUE(text < "2" && "0" < text && text <= kText && text == std::string_view(kText));
  EXPECT_TRUE(text < makeFile(2)->hashValueString);
  EXPECT_EQ("x" + text, "x" + kText);
  EXPECT_EQ(text + "x", kText + "x");
  EXPECT_EQ(std::string("x") + text + std::string("y"), "x" + kText + "y");
  EXPECT_EQ('x' + text + 'y', "x" + kText + "y");
  EXPECT_EQ(text + text, kText + kText);
  std::ostringstream out;
  out << text;
  EXPECT_EQ(out.str(), kText);
}

TEST(IdentityText, isWhereAStringIsExpected) {
  const auto file = makeFile();
  const std::string_view view = file->hashValueString;
  const std::string& reference = file->hashValueString;
  std::string copy = file->hashValueString;
  copy += file->hashValueString;
  EXPECT_EQ(view, kText);
  EXPECT_EQ(reference, kText);
  EXPECT_EQ(copy, kText + kText);
  EXPECT_EQ(std::string(file->hashValueString), kText);
  std::vector<std::string> list;
  list.push_back(file->hashValueString);
  list.emplace_back(file->hashValueString);
  std::map<std::string, int> counts;
  ++counts[file->hashValueString];
  std::unordered_set<std::string> set;
  set.insert(file->hashValueString);
  EXPECT_EQ(list[0] + list[1], kText + kText);
  EXPECT_EQ(counts.count(kText) + set.count(kText), 2U);
  EXPECT_EQ(std::hash<IdentityText>()(file->hashValueString), std::hash<std::string>()(kText));
}

TEST(IdentityText, writesLikeAString) {
  const auto file = makeFile();
  file->hashValueString = "a";
  file->hashValueString += "b";
  file->hashValueString += 'c';
  file->hashValueString.append("d").push_back('e');
  file->hashValueString[0] = 'A';
  EXPECT_EQ(file->hashValueString, "Abcde");
  std::string& text = file->hashValueString;
  text.insert(0, "<");
  EXPECT_EQ(file->hashValueString, "<Abcde");
  file->hashValueString.clear();
  EXPECT_EQ(file->hashValueString, "");
  file->hashValueString = std::string("own");
  EXPECT_EQ(file->hashValueString, "own");
  file->hashValueString = {};
  EXPECT_TRUE(file->hashValueString.empty());
}

TEST(IdentityText, referenceShowsEachLaterChange) {
  const auto file = makeFile();
  const std::string& text = file->hashValueString;
  file->size = 9;
  EXPECT_EQ(text, kText);
  file->finderID = 7;
  EXPECT_EQ(text, "7:2:9:file:///a/b");
  file->hashValueString = "own";
  EXPECT_EQ(text, "own");
  file->hashValueString = makeFile()->hashValueString;
  EXPECT_EQ(text, kText);
}

TEST(IdentityText, copyOutlivesItsRecord) {
  auto file = makeFile();
  const auto unread = file->hashValueString;
  EXPECT_EQ(file->hashValueString.size(), kText.size());
  const auto read = file->hashValueString;
  file->finderID = 5;
  file = nullptr;
  EXPECT_EQ(unread, kText);
  EXPECT_EQ(read, kText);
}

TEST(IdentityText, assignmentOfItselfChangesNothing) {
  const auto file = makeFile();
  const IdentityText& same = file->hashValueString;
  file->hashValueString = same;
  EXPECT_EQ(file->hashValueString, kText);
  file->hashValueString = "own";
  file->hashValueString = same;
  EXPECT_EQ(file->hashValueString, "own");
}

TEST(IdentityText, isSearchedAndEditedLikeAString) {
  const auto file = makeFile();
  IdentityText& field = file->hashValueString;
  EXPECT_EQ(field.find_first_of(":"), kText.find_first_of(":"));
  EXPECT_EQ(field.find_last_of(":/", 4), kText.find_last_of(":/", 4));
  EXPECT_EQ(std::string(field.rbegin(), field.rend()), std::string(kText.rbegin(), kText.rend()));
  field = "a-b";
  field.replace(1, 1, "--").insert(0, ">");
  EXPECT_EQ(field, ">a--b");
  EXPECT_EQ(*field.insert(field.begin(), '!'), '!');
  for (char& c : field) c = c == '-' ? '+' : c;
  *field.rbegin() = 'c';
  EXPECT_EQ(field, "!>a++c");
  EXPECT_EQ(*std::as_const(field).rbegin(), 'c');
}

TEST(IdentityText, swapsWithAStringAndWithAnotherRecords) {
  using std::swap;
  const auto file = makeFile();
  const auto other = makeFile();
  const std::string& seen = file->hashValueString;
  std::string text = "own";
  file->hashValueString.swap(text);
  EXPECT_EQ(text, kText);
  EXPECT_EQ(seen, "own");
  swap(file->hashValueString, other->hashValueString);
  EXPECT_EQ(seen, kText);
  EXPECT_EQ(other->hashValueString, "own");
  swap(text, other->hashValueString);
  EXPECT_EQ(text, "own");
  swap(other->hashValueString, text);
  EXPECT_EQ(text, kText);
}

TEST(IdentityText, firstReadOnManyThreadsGivesAllTheSameString) {
  constexpr int kThreads = 4;
  for (int round = 0; round < 50; ++round) {
    const auto file = makeFile();
    std::latch start(kThreads);
    std::atomic<int> same{0};
    const std::string* seen[kThreads] = {};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&, i] {
        start.arrive_and_wait();
        seen[i] = &std::as_const(file->hashValueString).text();
        if (*seen[i] == kText) ++same;
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(same, kThreads);
    for (const std::string* text : seen) EXPECT_EQ(text, seen[0]);
  }
}

}  // namespace
}  // namespace sorrel
