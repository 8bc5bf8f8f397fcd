#include "Tests/Support/DuplicateCases.hpp"

#include <filesystem>

namespace sorrel::test {
namespace {

namespace fs = std::filesystem;

constexpr int kDeepest = 2;

}  // namespace

std::string DuplicateCase::anyContent() {
  const int length = 1 + pick(3);
  return std::string(static_cast<std::size_t>(length), static_cast<char>('a' + pick(2)));
}

void DuplicateCase::makeFolder(const TemporaryVolume& volume, const std::string& name, int depth) {
  volume.folder(name);
  folders_.push_back(name);
  const int files = pick(4);
  for (int i = 0; i < files; ++i) {
    const std::string file = name + (pick(8) == 0 ? "/.hidden" : "/f") + std::to_string(i);
    switch (pick(10)) {
      case 0:
        volume.link(file, volume.path("kept"));
        break;
      case 1:
        fs::create_hard_link(volume.path("Users/alice/Data/first"), volume.path(file));
        break;
      default:
        volume.file(file, anyContent());
    }
  }
  const int folders = depth == kDeepest ? 0 : pick(3);
  for (int i = 0; i < folders; ++i) {
    makeFolder(volume, name + (pick(8) == 0 ? "/p.app" : "/d") + std::to_string(i), depth + 1);
  }
}

void DuplicateCase::makeFiles(const TemporaryVolume& volume) {
  volume.file("kept", "what links lead to");
  volume.file("Users/alice/Beside/a", "aa");
  volume.file("Users/alice/Data/first", "bbb");
  for (int i = 0; i < 3; ++i) makeFolder(volume, "Users/alice/Data/t" + std::to_string(i), 0);
  const int twins = pick(3);
  for (int i = 0; i < twins; ++i) {
    const std::string folder = folders_[static_cast<std::size_t>(pick(static_cast<int>(folders_.size())))];
    fs::copy(volume.path(folder), volume.path("Users/alice/Data/twin" + std::to_string(i)),
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  }
}

std::set<std::string> DuplicateCase::tick(CategoryInformation& all) {
  constexpr Integer kHeaders[] = {kOn, kOff, kMixed, kMixed, kMixed};
  std::set<std::string> selected;
  for (FileInformation& header : all.childrens) {
    header.state = kHeaders[pick(5)];
    for (FileInformation& member : header.childrens) {
      member.state = pick(2) == 0 ? kOn : kOff;
      // A header that is on determines the state of its members, as in an application.
      if (header.state == kOn && pick(4) != 0) member.state = kOn;
      const bool isSelected = header.state == kOn || (header.state == kMixed && member.state == kOn);
      if (isSelected) selected.insert(member.url.path());
    }
  }
  return selected;
}

}  // namespace sorrel::test
