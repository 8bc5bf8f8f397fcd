#include "SorrelFramework/Platform/Items/ContentType.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/Platform/Items/ContentTypeTables.hpp"
#include "SorrelFramework/Platform/Text/Text.hpp"
#include "Tests/Platform/Items/ContentTypeTrees.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel {
namespace {

using Texts = std::vector<std::string>;

bool contains(std::string_view text, std::string_view word) {
  return text.find(word) != std::string_view::npos;
}

/// The first of the four words that occurs in a type of the tree, in the order of the types.
std::string firstMatch(const Texts& tree) {
  for (const std::string& type : tree) {
    for (const char* word : {"image", "movie", "audio", "archive"}) {
      if (contains(type, word)) return word;
    }
  }
  return "";
}

std::set<std::string> kinds(const Texts& tree) {
  std::set<std::string> found;
  for (const std::string& type : tree) {
    if (contains(type, "image") && !contains(type, "-image")) found.insert("image");
    for (const char* word : {"movie", "document", "archive"}) {
      if (contains(type, word)) found.insert(word);
    }
  }
  return found;
}

bool hasMimeDatabase() { return mimeType("a.flac", false) == "audio/flac"; }

TEST(ContentType, treeListsParentsDepthFirstInDeclaredOrder) {
  EXPECT_EQ(contentTypeTree("a.png", false),
            (Texts{"public.png", "public.image", "public.data", "public.item", "public.content"}));
  EXPECT_EQ(contentTypeTree("a.docx", false),
            (Texts{"org.openxmlformats.wordprocessingml.document", "org.openxmlformats.openxml",
                   "public.data", "public.item", "public.composite-content", "public.content"}));
}

TEST(ContentType, diskImageTreeBeginsWithItsOwnType) {
  EXPECT_EQ(contentTypeTree("/x/a.dmg", false),
            (Texts{"com.apple.disk-image-udif", "com.apple.disk-image", "public.data", "public.item",
                   "public.disk-image", "public.archive"}));
}

TEST(ContentType, extensionIsReadRegardlessOfCase) {
  EXPECT_EQ(contentType("/a/IMG.JPG", false), "public.jpeg");
  EXPECT_EQ(contentType("/a/Foo.APP/", true), "com.apple.application-bundle");
}

TEST(ContentType, fileWithoutOrWithUnknownExtensionIsData) {
  for (const char* name : {"name", ".bashrc", "a.", "a.b c", "Makefile", "a.qqqzzz"}) {
    EXPECT_EQ(contentType(name, false), "public.data") << name;
    EXPECT_EQ(contentTypeTree(name, false), (Texts{"public.data", "public.item"})) << name;
  }
}

TEST(ContentType, movieReachesTheMovieBeforeTheAudiovisualType) {
  EXPECT_EQ(contentTypeTree("a.mp4", false),
            (Texts{"public.mpeg-4", "public.movie", "public.audiovisual-content", "public.data",
                   "public.item", "public.content"}));
}

TEST(ContentType, windowsMediaFilesShareOneContainer) {
  EXPECT_EQ(contentTypeTree("a.wmv", false),
            (Texts{"com.microsoft.windows-media-wmv", "com.microsoft.advanced-systems-format", "public.data",
                   "public.item", "public.movie", "public.audiovisual-content", "public.content"}));
  EXPECT_EQ(firstMatch(contentTypeTree("a.wma", false)), "audio");
  EXPECT_EQ(contentTypeTree("a.asf", false),
            (Texts{"com.microsoft.advanced-systems-format", "public.data", "public.item", "public.movie",
                   "public.audiovisual-content", "public.content"}));
}

TEST(ContentType, compressedFileWithoutAnIdentifierIsAnArchive) {
  EXPECT_EQ(contentTypeTree("a.zst", false), (Texts{"public.archive", "public.data", "public.item"}));
}

void expectTrees(std::span<const test::TypeTree> rows, bool isDirectory, std::set<std::string>& seen) {
  for (const test::TypeTree& row : rows) {
    const Texts tree = componentsSeparatedBy(row.tree, " ");
    for (const std::string& extension : componentsSeparatedBy(row.extensions, " ")) {
      EXPECT_EQ(contentTypeTree("a." + extension, isDirectory), tree) << extension;
      EXPECT_EQ(contentType("a." + extension, isDirectory), tree.front()) << extension;
      seen.insert(extension);
    }
  }
}

std::set<std::string> extensionsOf(std::span<const ExtensionRow> rows) {
  std::set<std::string> all;
  for (const ExtensionRow& row : rows) {
    for (const std::string& extension : componentsSeparatedBy(std::string(row.extensions), " "))
      all.insert(extension);
  }
  return all;
}

TEST(ContentType, everyExtensionHasTheTreeThatMacOSDeclares) {
  std::set<std::string> files;
  expectTrees(test::kFileTrees, false, files);
  EXPECT_EQ(files, extensionsOf(fileExtensionRows()));
  std::set<std::string> folders;
  expectTrees(test::kFolderTrees, true, folders);
  EXPECT_EQ(folders, extensionsOf(folderExtensionRows()));
}

struct WordRow {
  const char* extensions;
  const char* first;
  std::set<std::string> kinds;
};

TEST(ContentType, wordTestsOfTheTreesGiveTheExpectedKinds) {
  const std::vector<WordRow> rows = {{"jpg png heic heif avif webp tiff gif bmp", "image", {"image"}},
                                     {"dng cr2 nef arw raw svg ico icns psd jp2", "image", {"image"}},
                                     {"mp4 mov mkv avi webm ts", "movie", {"movie"}},
                                     {"mp3 wav flac m4a ogg", "audio", {}},
                                     {"zip 7z rar tar gz tgz bz2 xz zst jar pkg", "archive", {"archive"}},
                                     {"webarchive", "archive", {"archive"}},
                                     {"dmg iso", "image", {"archive"}},
                                     {"docx odt ods", "", {"document"}},
                                     {"pdf doc xlsx pptx txt rtf md pages", "", {}}};
  for (const WordRow& row : rows) {
    std::string_view rest = row.extensions;
    while (!rest.empty()) {
      const std::string extension(rest.substr(0, rest.find(' ')));
      rest.remove_prefix(std::min(extension.size() + 1, rest.size()));
      const Texts tree = contentTypeTree("a." + extension, false);
      EXPECT_EQ(firstMatch(tree), row.first) << extension;
      EXPECT_EQ(kinds(tree), row.kinds) << extension;
    }
  }
}

TEST(ContentType, plainFolderIsAFolderWhateverItsExtension) {
  for (const char* name : {"Documents", "a.png", "backup.2020", "de.lproj"}) {
    EXPECT_EQ(contentTypeTree(name, true), (Texts{"public.folder", "public.directory", "public.item"}))
        << name;
  }
}

TEST(ContentType, applicationIsAnExecutableABundleAndAPackage) {
  EXPECT_EQ(contentTypeTree("Foo.app", true),
            (Texts{"com.apple.application-bundle", "com.apple.application", "public.executable",
                   "public.item", "com.apple.bundle", "public.directory", "com.apple.package"}));
}

TEST(ContentType, sameExtensionMeansAnotherThingForAFolder) {
  EXPECT_EQ(contentType("a.pkg", false), "com.apple.installer-package-archive");
  EXPECT_EQ(contentType("a.pkg", true), "com.apple.package");
  EXPECT_EQ(contentType("a.key", false), "com.apple.iwork.keynote.sffkey");
  EXPECT_EQ(contentType("Foo.app", false), "public.data");
}

TEST(ContentType, packagesAreKnownByTheirExtensionRegardlessOfCase) {
  for (const char* name :
       {"Foo.app", "Foo.APP", "Color.colorPicker", "a.prefpane", "a.prefPane", "Photos.photoslibrary",
        "x.bundle", "x.sparsebundle", "doc.rtfd", "doc.pages", "/a/b/x.xcodeproj/"}) {
    EXPECT_TRUE(isPackageName(name)) << name;
  }
}

TEST(ContentType, frameworksAndTranslationsAreNoPackages) {
  for (const char* name : {"Foo.framework", "en.lproj", "Documents", ".app", "app", "a.png", ""}) {
    EXPECT_FALSE(isPackageName(name)) << name;
  }
}

TEST(ContentType, otherExtensionsComeFromTheMimeDatabase) {
  if (!hasMimeDatabase()) GTEST_SKIP() << "no MIME database here";
  EXPECT_EQ(contentTypeTree("a.pcx", false),
            (Texts{"public.image", "public.data", "public.item", "public.content"}));
  EXPECT_EQ(contentType("a.mod", false), "public.audio");
  EXPECT_EQ(contentType("a.lua", false), "public.plain-text");
  EXPECT_EQ(contentTypeTree("a.lzo", false).front(), "public.data") << "lzop is not among the archives";
  EXPECT_EQ(contentTypeTree("a.woff2", false), (Texts{"public.data", "public.item", "public.font"}));
  EXPECT_EQ(contentType("a.ott", false), "org.oasis-open.opendocument.text");
  EXPECT_EQ(contentType("a.xltx", false), "org.openxmlformats.spreadsheetml.sheet");
  EXPECT_EQ(contentType("a.sql", false), "public.plain-text");
}

// Their MIME types conform to application/zip, but users do not think of them as archives.
TEST(ContentType, documentsInsideAZipAreNoArchives) {
  for (const char* name : {"a.docx", "a.odt", "a.epub", "a.ott", "a.oxt"}) {
    EXPECT_NE(firstMatch(contentTypeTree(name, false)), "archive") << name;
  }
}

TEST(ContentType, ownTableComesBeforeTheMimeDatabase) {
  EXPECT_EQ(contentType("a.ts", false), "public.mpeg-2-transport-stream");
  EXPECT_EQ(contentType("a.otf", false), "public.opentype-font");
}

TEST(ContentType, itemOnDiskIsLookedAtWithoutFollowingLinks) {
  const test::TemporaryFolder folder;
  const std::string program = folder.script("tool", "true");
  ASSERT_EQ(::symlink("tool", folder.path("link.png").c_str()), 0);
  EXPECT_EQ(contentTypeTree(program),
            (Texts{"public.unix-executable", "public.data", "public.item", "public.executable"}));
  EXPECT_EQ(contentTypeTree(folder.path("link.png")),
            (Texts{"public.symlink", "public.item", "com.apple.resolvable"}));
  EXPECT_EQ(contentType(folder.folder("Foo.app")), "com.apple.application-bundle");
  EXPECT_EQ(contentType(folder.file("a.png")), "public.png");
  EXPECT_EQ(contentType(folder.script("a.sh", "true")), "public.shell-script");
  EXPECT_EQ(contentType(folder.file("plain")), "public.data");
}

TEST(ContentType, missingItemHasNoType) {
  EXPECT_EQ(contentType("/nonexistent/a.png"), "");
  EXPECT_EQ(contentTypeTree("/nonexistent/a.png"), Texts{});
}

TEST(ContentType, pipeIsNeverOpened) {
  const test::TemporaryFolder folder;
  ASSERT_EQ(::mkfifo(folder.path("a.png").c_str(), 0600), 0);
  EXPECT_EQ(contentType(folder.path("a.png")), "public.png");
}

TEST(ContentType, mimeTypeOfAFolderAndOfNothingKnown) {
  EXPECT_EQ(mimeType("/a/b.png", true), "inode/directory");
  EXPECT_EQ(mimeType("/a/b.qqqzzz", false), "application/octet-stream");
}

TEST(ContentType, descriptionIsInWords) {
  if (!hasMimeDatabase()) GTEST_SKIP() << "no MIME database here";
  EXPECT_EQ(localizedTypeDescription("/a/b.JPG", false), "JPEG image");
  EXPECT_EQ(localizedTypeDescription("/a/b", true), "folder");
}

TEST(ContentType, theDatabaseIsReadOnceIfAFolderComesFirst) {
  if (!hasMimeDatabase()) GTEST_SKIP() << "no MIME database here";
  // A leaked database is reported by the leak checker, in a process that has queried nothing else.
  EXPECT_EQ(localizedTypeDescription("/a/b", true), "folder");
  EXPECT_EQ(mimeType("/a/b.png", false), "image/png");
}

TEST(ContentType, everyTypeOfTheTablesIsDeclaredOnce) {
  std::set<std::string_view> declared;
  for (const TypeRow& row : typeRows()) EXPECT_TRUE(declared.insert(row.type).second) << row.type;
  const auto expectDeclared = [&declared](std::string_view types) {
    while (!types.empty()) {
      const std::string_view type = types.substr(0, types.find(' '));
      EXPECT_TRUE(declared.contains(type)) << type;
      types.remove_prefix(std::min(type.size() + 1, types.size()));
    }
  };
  for (const TypeRow& row : typeRows()) expectDeclared(row.parents);
  for (const ExtensionRow& row : fileExtensionRows()) expectDeclared(row.type);
  for (const ExtensionRow& row : folderExtensionRows()) expectDeclared(row.type);
  for (const MimeRow& row : mimeRows()) expectDeclared(row.type);
}

TEST(ContentType, everyExtensionStandsInOneRow) {
  for (const auto rows : {fileExtensionRows(), folderExtensionRows()}) {
    std::set<std::string> seen;
    for (const ExtensionRow& row : rows) {
      std::string_view rest = row.extensions;
      while (!rest.empty()) {
        const std::string word(rest.substr(0, rest.find(' ')));
        EXPECT_TRUE(seen.insert(word).second) << word;
        rest.remove_prefix(std::min(word.size() + 1, rest.size()));
      }
    }
  }
}

}  // namespace
}  // namespace sorrel
