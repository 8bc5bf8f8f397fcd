#include "SorrelFramework/Platform/Items/Image.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel {
namespace {

/// Sets a variable of the environment for one test.
class Variable {
 public:
  Variable(const char* name, const std::string& value) : name_(name) {
    if (const char* const old = std::getenv(name)) old_ = old;
    ::setenv(name, value.c_str(), 1);
  }
  ~Variable() { old_ ? ::setenv(name_, old_->c_str(), 1) : ::unsetenv(name_); }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

 private:
  const char* name_;
  std::optional<std::string> old_;
};

class ImageLookUp : public testing::Test {
 protected:
  ImageLookUp() {
    Host::install(Host::macVolume(folder_.path(), "alice", {"com.example", folder_.folder("Resources"), {}}));
  }
  ~ImageLookUp() override { Host::install(Host::linuxDesktop({})); }

  void expectFound(std::string_view name) {
    const Image image = Image::lookUp(name);
    EXPECT_EQ(image.kind(), Image::Kind::Named) << name;
    EXPECT_EQ(image.name(), name);
  }

  test::TemporaryFolder folder_;
  Variable home_{"XDG_DATA_HOME", folder_.path("share")};
  Variable shared_{"XDG_DATA_DIRS", folder_.path("first") + ":" + folder_.path("second")};
};

TEST(Image, defaultIsEmpty) {
  EXPECT_TRUE(Image().isEmpty());
  EXPECT_EQ(Image().kind(), Image::Kind::Empty);
  EXPECT_EQ(Image().filePath(), "");
}

TEST(Image, namedDoesNotLookWhetherThePictureExists) {
  const Image image = Image::named("App_Nowhere");
  EXPECT_EQ(image.kind(), Image::Kind::Named);
  EXPECT_EQ(image.name(), "App_Nowhere");
  EXPECT_EQ(image.filePath(), "");
  EXPECT_TRUE(Image::named("").isEmpty());
}

TEST(Image, iconKeepsTheFile) {
  const URL url = URL::fileURL("/a b/c\xFF.png", false);
  const Image image = Image::iconOf(url);
  EXPECT_EQ(image.kind(), Image::Kind::FileIcon);
  EXPECT_EQ(image.name(), url.relativeText());
  EXPECT_EQ(image.filePath(), "/a b/c\xFF.png");
}

TEST(Image, iconOfTheEmptyPathIsThatOfTheCurrentFolder) {
  EXPECT_EQ(Image::iconOf(URL()).filePath(), URL().path());
}

TEST(Image, iconSharesTheTextOfTheURL) {
  const URL url = URL::fileURL("/a", false);
  EXPECT_EQ(Image::iconOf(url).name().data(), url.relativeText().data());
}

TEST(Image, equalityGoesByKindAndText) {
  EXPECT_EQ(Image::named("a"), Image::named("a"));
  EXPECT_FALSE(Image::named("a") == Image::named("b"));
  EXPECT_FALSE(Image::named("file:///a") == Image::iconOf(URL::fileURL("/a", false)));
}

TEST_F(ImageLookUp, resourceIsFoundWithAnyExtension) {
  for (const char* type : {".png", ".svg", ".icns", ".tiff", ""}) {
    const std::string name = std::string("App_Cache") + (*type == 0 ? "Plain" : type + 1);
    folder_.file("Resources/" + name + type);
    expectFound(name);
  }
}

TEST_F(ImageLookUp, nameMayBringItsExtension) {
  folder_.file("Resources/picture.png");
  expectFound("picture.png");
}

TEST_F(ImageLookUp, unknownNameGivesAnEmptyHandle) {
  folder_.file("Resources/picture.txt");
  folder_.folder("Resources/folder.png");
  for (const char* name : {"", "picture", "folder", "nowhere"})
    EXPECT_TRUE(Image::lookUp(name).isEmpty()) << name;
}

TEST_F(ImageLookUp, nameCannotLeadOutOfTheResources) {
  folder_.file("outside.png");
  EXPECT_TRUE(Image::lookUp("../outside").isEmpty());
  EXPECT_TRUE(Image::lookUp("../outside.png").isEmpty());
}

TEST_F(ImageLookUp, iconThemesOfAllDataFoldersAreSearched) {
  folder_.file("share/icons/hicolor/48x48/apps/own.png");
  folder_.file("first/icons/hicolor/scalable/places/shared.svg");
  folder_.file("second/icons/Adwaita/symbolic/status/late.svg");
  folder_.file("second/pixmaps/old.xpm");
  for (const char* name : {"own", "shared", "late", "old"}) expectFound(name);
}

TEST_F(ImageLookUp, otherThemesAndTypesAreNotSearched) {
  folder_.file("first/icons/Fancy/48x48/apps/fancy.png");
  folder_.file("first/icons/hicolor/48x48/apps/text.txt");
  EXPECT_TRUE(Image::lookUp("fancy").isEmpty());
  EXPECT_TRUE(Image::lookUp("text").isEmpty());
}

TEST_F(ImageLookUp, answerAboutAThemeIsRemembered) {
  folder_.file("first/pixmaps/other.png");
  EXPECT_TRUE(Image::lookUp("late").isEmpty());
  folder_.file("first/pixmaps/late.png");
  EXPECT_TRUE(Image::lookUp("late").isEmpty());
  const Variable elsewhere("XDG_DATA_DIRS", folder_.path("first"));
  expectFound("late");
}

}  // namespace
}  // namespace sorrel
