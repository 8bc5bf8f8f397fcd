#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "SorrelFramework/Model/FileInfo.hpp"

namespace sorrel {

class DuplicateNode;

/// State shared by the nodes of one tree.
class DuplicateFolderInfo {
 public:
  std::vector<std::string> rootPath;
  std::map<std::string, std::pair<Integer, std::vector<std::shared_ptr<DuplicateNode>>>> foldersAndNodesInfo;

  /// The difference between the sums of the characters' ASCII values of two texts. A non-ASCII character,
  /// such as a letter with an accent in any encoding form, adds zero.
  [[nodiscard]] static Integer calculateValue(std::string_view folder1, std::string_view folder2);
};

/// A node of a finer tree of duplicate folders than the scan makes. No scan builds it yet.
class DuplicateNode {
 public:
  Integer nodeDeep = 0;           ///< depth in the tree
  Integer nodePropertyValue = 0;  ///< for comparing nodes
  Integer fileOrFolderNode = 0;
  std::vector<std::string> folderPaths;
  std::vector<std::string> filePaths;
  std::vector<Ref<FileInformation>> sameFiles;  ///< the files that are equal here
  std::map<std::string, std::shared_ptr<DuplicateNode>> childrenNode;
  std::shared_ptr<DuplicateFolderInfo> folderInfo;

  /// Takes its arguments and does nothing.
  void inputNode(const std::shared_ptr<DuplicateNode>& node, const Ref<FileInformation>& fileInfo,
                 const std::vector<std::string>& folders, std::string_view md5String);
  /// The MD5, in upper-case hexadecimal digits, of the texts joined in descending order (textLess).
  [[nodiscard]] static std::string calculationDistanceString(std::vector<std::string> folderStrs);
};

/// The tree itself; both operations do nothing.
class DuplicateFileTree {
 public:
  void addNode(std::string_view md5String, const Ref<FileInformation>& fileInfo);
  void tree();
};

}  // namespace sorrel
