#include "SorrelFramework/Platform/Text/URL.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel {
namespace {

using Texts = std::vector<std::string>;

URL parsed(std::string_view text) {
  const auto url = URL::parse(text);
  EXPECT_TRUE(url.has_value()) << text;
  return url.value_or(URL());
}

/// The file URL text of a path without reading the disk.
std::string fileText(std::string_view path, bool isDirectory = false) {
  return URL::fileURL(path, isDirectory).absoluteString();
}

// Texts.

TEST(URL, parseAcceptsTheCharactersOfURLs) {
  for (const char* text :
       {"https://a.b/c?d=e&f#g", "foo", "file:///a%20b", "x:!$&'()*+,-./:;=?@_~[]", "a%2Fb%aF", "#"}) {
    const auto url = URL::parse(text);
    ASSERT_TRUE(url.has_value()) << text;
    EXPECT_EQ(url->absoluteString(), text) << "kept letter for letter";
  }
}

TEST(URL, parseRefusesEveryOtherCharacter) {
  for (int c = 0; c < 256; ++c) {
    const std::string_view allowed =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789!$&'()*+,-./:;=?@_~[]#";
    const char character = static_cast<char>(c);
    EXPECT_EQ(URL::parse(std::string("a") + character).has_value(),
              allowed.find(character) != std::string_view::npos)
        << c;
  }
}

TEST(URL, parseRefusesWhatIsNoURL) {
  for (const char* text : {"", "a b", "a#b#c", "%", "a%2", "a%2g", "%zz", "http://\xC3\xB6"}) {
    EXPECT_FALSE(URL::parse(text).has_value()) << text;
  }
}

TEST(URL, textIsKeptWithoutNormalisation) {
  EXPECT_EQ(parsed("HTTP://A.B/../c/./d").absoluteString(), "HTTP://A.B/../c/./d");
  EXPECT_EQ(parsed("file:///a%2fb").relativeText(), "file:///a%2fb");
}

// File URLs from paths.

TEST(URL, fileURLCodesEveryByteThatIsNotPlain) {
  EXPECT_EQ(fileText("/AZaz09!$&'()*+,-./:=@_~"), "file:///AZaz09!$&'()*+,-./:=@_~");
  EXPECT_EQ(fileText("/;?#%[] \"<>\\^`{|}"), "file:///%3B%3F%23%25%5B%5D%20%22%3C%3E%5C%5E%60%7B%7C%7D");
  EXPECT_EQ(fileText("/\xC3\xB6"), "file:///%C3%B6");
  EXPECT_EQ(fileText("/a\n\x7F"), "file:///a%0A%7F");
}

TEST(URL, everyByteOfAPathSurvives) {
  std::string path = "/";
  for (int c = 1; c < 256; ++c) {
    if (c != '/') path += static_cast<char>(c);
  }
  EXPECT_EQ(URL::fileURL(path, false).path(), path);
  EXPECT_TRUE(URL::parse(fileText(path)).has_value());
}

TEST(URL, fileURLKeepsTheFormOfTheLetters) {
  EXPECT_EQ(fileText("/\xC3\xA9"), "file:///%C3%A9");
  EXPECT_EQ(fileText("/e\xCC\x81"), "file:///e%CC%81");
}

TEST(URL, folderEndsInExactlyOneSlash) {
  EXPECT_EQ(fileText("/a", true), "file:///a/");
  EXPECT_EQ(fileText("/a/", true), "file:///a/");
  EXPECT_EQ(fileText("/a///", true), "file:///a/");
}

TEST(URL, fileLosesItsTrailingSlashes) {
  EXPECT_EQ(fileText("/a/"), "file:///a");
  EXPECT_EQ(fileText("/a//"), "file:///a");
}

TEST(URL, rootStaysASlash) {
  EXPECT_EQ(fileText("/"), "file:///");
  EXPECT_EQ(fileText("/", true), "file:///");
  EXPECT_EQ(URL::fileURL("/").path(), "/");
}

class URLOnDisk : public testing::Test {
 protected:
  test::TemporaryFolder folder_;
};

TEST_F(URLOnDisk, fileURLLooksWhetherThePathIsAFolder) {
  const std::string folder = folder_.folder("d");
  const std::string file = folder_.file("f");
  ASSERT_EQ(::symlink("d", folder_.path("l").c_str()), 0);
  EXPECT_EQ(URL::fileURL(folder).absoluteString(), "file://" + folder + "/");
  EXPECT_EQ(URL::fileURL(file).absoluteString(), "file://" + file);
  EXPECT_EQ(URL::fileURL(folder_.path("l")).absoluteString(), "file://" + folder_.path("l"))
      << "a link is no folder";
  EXPECT_EQ(URL::fileURL(folder_.path("missing/")).absoluteString(), "file://" + folder_.path("missing/"));
}

TEST_F(URLOnDisk, appendedComponentThatIsAFolderGetsASlash) {
  folder_.folder("d");
  folder_.file("f");
  ASSERT_EQ(::symlink("d", folder_.path("l").c_str()), 0);
  const URL base = URL::fileURL(folder_.path());
  EXPECT_EQ(base.appendingPathComponent("d").absoluteString(), "file://" + folder_.path("d/"));
  EXPECT_EQ(base.appendingPathComponent("f").absoluteString(), "file://" + folder_.path("f"));
  EXPECT_EQ(base.appendingPathComponent("l").absoluteString(), "file://" + folder_.path("l"));
  EXPECT_EQ(base.appendingPathComponent("missing").absoluteString(), "file://" + folder_.path("missing"));
}

TEST(URL, relativePathLiesInTheCurrentFolder) {
  const std::string here = std::filesystem::current_path();
  EXPECT_EQ(URL::fileURL("x y", false).path(), (here == "/" ? "" : here) + "/x y");
}

// The empty path.

TEST(URL, emptyPathIsTheCurrentFolder) {
  const std::string here = std::filesystem::current_path();
  const URL url;
  EXPECT_TRUE(url.isEmptyPath());
  EXPECT_TRUE(url.isFileURL());
  EXPECT_EQ(url.relativeText(), "./");
  EXPECT_EQ(url.path(), here);
  EXPECT_EQ(url.absoluteString(), fileText(here, true));
  EXPECT_EQ(url.description(), "./ -- " + fileText(here, true));
}

TEST(URL, emptyPathsOfOneFolderAreEqual) {
  EXPECT_EQ(URL(), URL::fileURL(""));
  EXPECT_EQ(URL(), URL::fileURL("", true));
  EXPECT_FALSE(URL() == URL::fileURL(std::filesystem::current_path().string(), true));
  EXPECT_FALSE(URL() == parsed("./"));
}

// Reading.

TEST(URL, pathIsDecodedWithoutTheSlashAtItsEnd) {
  EXPECT_EQ(parsed("file:///a%20b/c/").path(), "/a b/c");
  EXPECT_EQ(parsed("file:///").path(), "/");
  EXPECT_EQ(parsed("file:///a?q#f").path(), "/a");
  EXPECT_EQ(parsed("file:///a%3Fb").path(), "/a?b");
  EXPECT_EQ(parsed("https://a.b/c/d?x=/y").path(), "/c/d");
  EXPECT_EQ(parsed("https://a.b").path(), "");
  EXPECT_EQ(parsed("file:///a%FF").path(), "/a\xFF");
}

TEST(URL, URLWithoutAHierarchyHasNoPath) {
  for (const char* text : {"mailto:a@b.c", "about:blank", "javascript:void(0)"}) {
    EXPECT_EQ(parsed(text).path(), "") << text;
    EXPECT_EQ(parsed(text).lastPathComponent(), "") << text;
  }
}

TEST(URL, relativeTextIsItsOwnPath) { EXPECT_EQ(parsed("foo/bar").path(), "foo/bar"); }

TEST(URL, lastPathComponentIgnoresASlashAtTheEnd) {
  EXPECT_EQ(parsed("file:///a/b%20c/").lastPathComponent(), "b c");
  EXPECT_EQ(parsed("file:///a").lastPathComponent(), "a");
  EXPECT_EQ(parsed("file:///").lastPathComponent(), "/");
  EXPECT_EQ(parsed("https://a.b").lastPathComponent(), "");
  EXPECT_EQ(parsed("https://a.b/").lastPathComponent(), "/");
}

TEST(URL, pathExtensionIsThatOfTheLastComponent) {
  EXPECT_EQ(parsed("file:///a/b.app/").pathExtension(), "app");
  EXPECT_EQ(parsed("file:///a.d/b").pathExtension(), "");
  EXPECT_EQ(parsed("https://a.b").pathExtension(), "");
  EXPECT_EQ(parsed("file:///a.b%20c").pathExtension(), "") << "a blank makes it no extension";
}

TEST(URL, deletingPathExtensionKeepsTheSlashAtTheEnd) {
  EXPECT_EQ(parsed("file:///a/b.app/").deletingPathExtension().absoluteString(), "file:///a/b/");
  EXPECT_EQ(parsed("file:///a/b.tar.gz").deletingPathExtension().absoluteString(), "file:///a/b.tar");
  EXPECT_EQ(parsed("file:///a.d/b").deletingPathExtension().absoluteString(), "file:///a.d/b");
  EXPECT_EQ(parsed("file:///a/.bashrc").deletingPathExtension().absoluteString(), "file:///a/.bashrc");
  EXPECT_EQ(parsed("https://a.b/c.d?e.f").deletingPathExtension().absoluteString(), "https://a.b/c?e.f");
  EXPECT_EQ(fileText("/a/b.\xC3\xB6"), "file:///a/b.%C3%B6");
  EXPECT_EQ(URL::fileURL("/a/b.\xC3\xB6", false).deletingPathExtension().absoluteString(), "file:///a/b");
}

TEST(URL, deletingPathExtensionFindsACodedDot) {
  EXPECT_EQ(parsed("file:///a/b%2Etxt").deletingPathExtension().absoluteString(), "file:///a/b");
  EXPECT_EQ(parsed("file:///a.d/b%2etxt/").deletingPathExtension().absoluteString(), "file:///a.d/b/");
}

TEST(URL, appendedComponentIsCodedBehindOneSlash) {
  EXPECT_EQ(parsed("file:///x").appendingPathComponent("a b").absoluteString(), "file:///x/a%20b");
  EXPECT_EQ(parsed("file:///x/").appendingPathComponent("a/b").absoluteString(), "file:///x/a/b");
  EXPECT_EQ(parsed("file:///x/").appendingPathComponent("/a").absoluteString(), "file:///x/a");
  EXPECT_EQ(parsed("file:///x").appendingPathComponent("a%b").absoluteString(), "file:///x/a%25b");
  EXPECT_EQ(parsed("file:///x").appendingPathComponent("a", true).absoluteString(), "file:///x/a/");
  EXPECT_EQ(parsed("file:///x").appendingPathComponent("a/", false).absoluteString(), "file:///x/a");
  EXPECT_EQ(parsed("file:///x").appendingPathComponent("a/").absoluteString(), "file:///x/a/");
  EXPECT_EQ(parsed("https://a.b/c?d").appendingPathComponent("e").absoluteString(), "https://a.b/c/e?d");
}

TEST(URL, rootCountsAsOnePathComponent) {
  EXPECT_EQ(parsed("file:///Users/a").pathComponents(), (Texts{"/", "Users", "a"}));
  EXPECT_EQ(parsed("file:///Users/a/").pathComponents(), (Texts{"/", "Users", "a"}));
  EXPECT_EQ(parsed("file:///").pathComponents(), (Texts{"/"}));
  EXPECT_EQ(parsed("file:///a%20b").pathComponents(), (Texts{"/", "a b"}));
  EXPECT_EQ(parsed("https://a.b").pathComponents(), Texts{});
}

TEST(URL, isFileURLByItsScheme) {
  EXPECT_TRUE(parsed("file:///a").isFileURL());
  EXPECT_FALSE(parsed("https://a.b/file:").isFileURL());
  EXPECT_FALSE(parsed("foo").isFileURL());
}

TEST(URL, equalityAndHashGoByTheText) {
  EXPECT_EQ(parsed("file:///a"), URL::fileURL("/a", false));
  EXPECT_FALSE(parsed("file:///a") == parsed("file:///a/"));
  EXPECT_FALSE(parsed("file:///%41") == parsed("file:///A"));
  EXPECT_EQ(std::hash<URL>()(parsed("file:///a")), std::hash<URL>()(URL::fileURL("/a", false)));
}

TEST(URL, orderIsThatOfTheTexts) {
  EXPECT_TRUE(parsed("file:///a") < parsed("file:///a/"));
  EXPECT_TRUE(parsed("file:///Z") < parsed("file:///a"));
  EXPECT_FALSE(parsed("file:///a") < parsed("file:///a"));
}

TEST(URL, encodedPiecesAreJoinedAsTheyAre) {
  EXPECT_EQ(URL::fromEncodedPieces("file:///a%20b/", "c%25").path(), "/a b/c%");
  EXPECT_EQ(URL::fromEncodedPieces("file:///a/", "b"), URL::fileURL("/a/b", false));
}

TEST(URL, arrayPrintsItsElementsWithoutQuotes) {
  EXPECT_EQ(describe({}), "[]");
  EXPECT_EQ(describe({parsed("file:///a/")}), "[file:///a/]");
  EXPECT_EQ(describe({parsed("file:///a/"), parsed("file:///b/")}), "[file:///a/, file:///b/]");
  EXPECT_EQ(describe({URL()}), "[" + URL().description() + "]");
}

// Percent codes.

TEST(URL, percentDecodedBytesLeavesABrokenCodeAlone) {
  EXPECT_EQ(percentDecodedBytes("a%20b%2"), "a b%2");
  EXPECT_EQ(percentDecodedBytes("%zz%41+"), "%zzA+");
  EXPECT_EQ(percentDecodedBytes("%FF%c3%B6"), "\xFF\xC3\xB6");
  EXPECT_EQ(percentDecodedBytes(""), "");
}

TEST(URL, removingPercentEncodingIsStrict) {
  EXPECT_EQ(removingPercentEncoding("a%20b+c"), "a b+c");
  EXPECT_EQ(removingPercentEncoding(""), "");
  EXPECT_EQ(removingPercentEncoding("%C3%B6"), "\xC3\xB6");
  EXPECT_EQ(removingPercentEncoding("a%2"), std::nullopt);
  EXPECT_EQ(removingPercentEncoding("%g0"), std::nullopt);
  EXPECT_EQ(removingPercentEncoding("%FF"), std::nullopt);
}

TEST(URL, encodedPathIsAppended) {
  std::string text = "file://";
  appendPercentEncodedPath(text, "/a b");
  EXPECT_EQ(text, "file:///a%20b");
  EXPECT_EQ(percentEncodedPath("\x01"), "%01");
}

// Paths.

TEST(URL, pathExtensionOfANameIsWhatFollowsTheLastDot) {
  EXPECT_EQ(pathExtension("a.tar.gz"), "gz");
  EXPECT_EQ(pathExtension(".x.txt"), "txt");
  EXPECT_EQ(pathExtension("My.apple.app"), "app");
  EXPECT_EQ(pathExtension("x8d7.default-release"), "default-release");
  EXPECT_EQ(pathExtension("Foo.app/"), "app");
  EXPECT_EQ(pathExtension("x..y"), "y");
}

TEST(URL, someDotsMakeNoExtension) {
  for (const char* name : {".bashrc", "a.", "a.b c", "...", "name", "", "..x", "...x", "/", "a.b\xE2\x80\x8E",
                           "a.\342\200\256b", "a.\xD8\x9C", "a.\xE2\x81\xA6z"}) {
    EXPECT_EQ(pathExtension(name), "") << name;
  }
}

TEST(URL, lastComponentOfAPath) {
  EXPECT_EQ(lastPathComponent("/"), "/");
  EXPECT_EQ(lastPathComponent(""), "");
  EXPECT_EQ(lastPathComponent("a"), "a");
  EXPECT_EQ(lastPathComponent("/a//"), "a");
  EXPECT_EQ(lastPathComponent("/a/b"), "b");
  EXPECT_EQ(lastPathComponent("//"), "/");
}

TEST(URL, pathWithoutItsLastComponent) {
  EXPECT_EQ(deletingLastPathComponent("/a/b"), "/a");
  EXPECT_EQ(deletingLastPathComponent("/a"), "/");
  EXPECT_EQ(deletingLastPathComponent("a"), "");
  EXPECT_EQ(deletingLastPathComponent("/a/b/"), "/a");
  EXPECT_EQ(deletingLastPathComponent("/a//b"), "/a");
  EXPECT_EQ(deletingLastPathComponent("/"), "/");
  EXPECT_EQ(deletingLastPathComponent(""), "");
}

TEST(URL, joinedPathsHaveOneSlashBetweenThem) {
  EXPECT_EQ(appendingPathComponent("", "x"), "x");
  EXPECT_EQ(appendingPathComponent("/a/", "b/"), "/a/b");
  EXPECT_EQ(appendingPathComponent("/a", "b"), "/a/b");
  EXPECT_EQ(appendingPathComponent("/", "b"), "/b");
  EXPECT_EQ(appendingPathComponent("//a//c", "/b"), "/a/c/b");
}

TEST(URL, pathHasNoSlashAtItsEndThatWasCoded) {
  EXPECT_EQ(URL::parse("file:///b%2f").value().path(), "/b");
  EXPECT_EQ(URL::parse("file:///a/%2F/").value().path(), "/a");
  EXPECT_EQ(URL::parse("file:///%2f").value().path(), "/");
}

}  // namespace
}  // namespace sorrel
