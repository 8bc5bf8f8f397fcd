#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "Tests/Support/TreeRemoval.hpp"

namespace sorrel::test {

namespace fs = std::filesystem;

TemporaryFolder::TemporaryFolder()
    : path_((fs::canonical(fs::temp_directory_path()) / fs::path(kPrefix).concat("XXXXXX")).string()) {
  EXPECT_NE(::mkdtemp(path_.data()), nullptr) << path_;
}

TemporaryFolder::~TemporaryFolder() { EXPECT_TRUE(removeTree(path_)) << path_; }

std::string TemporaryFolder::path(std::string_view name) const { return path_ + '/' + std::string(name); }

std::string TemporaryFolder::file(std::string_view name, std::string_view content) const {
  std::string file = path(name);
  fs::create_directories(fs::path(file).parent_path());
  std::ofstream(file, std::ios::binary) << content;
  return file;
}

std::string TemporaryFolder::script(std::string_view name, std::string_view commands) const {
  std::string program = file(name, "#!/bin/sh\n" + std::string(commands) + "\n");
  fs::permissions(program, fs::perms::owner_all);
  return program;
}

std::string TemporaryFolder::folder(std::string_view name) const {
  std::string folder = path(name);
  fs::create_directories(folder);
  return folder;
}

std::string contentOf(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  EXPECT_TRUE(stream.is_open()) << path;
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

}  // namespace sorrel::test
