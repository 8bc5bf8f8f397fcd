#include "SorrelFramework/Platform/Machine/ChildNotes.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "SorrelFramework/Platform/Machine/ChildProcess.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/ScopedVariable.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel {
namespace {

class ChildNotesTest : public testing::Test {
 protected:
  /// The output of a shell script that may leave notes.
  [[nodiscard]] std::string run(const std::string& script, const ChildNotes* notes) const {
    ChildProcess child("/bin/sh", {"-c", script}, {}, notes);
    std::string output;
    child.run([&output](std::string_view piece) {
      output += piece;
      return true;
    });
    return output;
  }
};

TEST_F(ChildNotesTest, holdWhatTheChildWrote) {
  const ChildNotes notes;
  EXPECT_EQ(run("echo noted >>/proc/self/fd/$SORREL_NOTES; echo printed", &notes), "printed\n");
  EXPECT_EQ(notes.text(), "noted\n");
  EXPECT_EQ(notes.text(), "noted\n");  // it may be read again
}

TEST_F(ChildNotesTest, areEmptyIfTheChildWroteNone) {
  const ChildNotes notes;
  EXPECT_EQ(run("echo printed", &notes), "printed\n");
  EXPECT_EQ(notes.text(), "");
}

TEST_F(ChildNotesTest, childWithoutThemInheritsNone) {
  const ChildNotes notes;
  const std::string number = std::to_string(notes.descriptor());
  EXPECT_EQ(run("echo ${SORREL_NOTES-none}; test -e /proc/self/fd/" + number + " || echo closed", nullptr),
            "none\nclosed\n");
}

TEST_F(ChildNotesTest, areCutAtTheirLimit) {
  const ChildNotes notes;
  EXPECT_EQ(run("head -c 2000000 /dev/zero >>/proc/self/fd/$SORREL_NOTES", &notes), "");
  EXPECT_EQ(notes.text().size(), ChildNotes::kMostBytes);
}

TEST_F(ChildNotesTest, workInAProcessWithoutStandardStreams) {
  EXPECT_EQ(test::inChild([this] {
              for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::close(stream);
              const ChildNotes notes;
              const std::string output =
                  run("echo printed; echo noted >>/proc/self/fd/$SORREL_NOTES", &notes);
              return output + notes.text();
            }),
            "printed\nnoted\n");
}

TEST_F(ChildNotesTest, areLeftWhereTheParentAskedForThem) {
  const ChildNotes notes;
  const test::ScopedVariable asked(kNotesVariable, std::to_string(notes.descriptor()).c_str());
  EXPECT_TRUE(ChildNotes::leave(std::string("a\0b", 3)));
  EXPECT_EQ(notes.text(), std::string("a\0b", 3));
}

TEST_F(ChildNotesTest, areNotLeftWithoutAParentThatAsked) {
  const test::ScopedVariable asked(kNotesVariable, nullptr);
  EXPECT_FALSE(ChildNotes::leave("text"));
}

TEST_F(ChildNotesTest, areNeverWrittenIntoAFileOfTheUser) {
  const test::TemporaryFolder folder;
  const std::string path = folder.file("file", "untouched");
  const FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
  for (const std::string& number : {std::to_string(file.get()), std::string("-1"), std::string("no number"),
                                    std::string("1x"), std::string(), std::string("99999")}) {
    const test::ScopedVariable asked(kNotesVariable, number.c_str());
    EXPECT_FALSE(ChildNotes::leave("text")) << number;
  }
  EXPECT_EQ(test::contentOf(path), "untouched");
}

}  // namespace
}  // namespace sorrel
