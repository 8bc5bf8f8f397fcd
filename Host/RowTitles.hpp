#pragma once

#include <string>
#include <string_view>
#include <unordered_map>

namespace sorrel {
class FeatureInformation;
class FileInformation;
template <class T>
class Children;
}  // namespace sorrel

namespace sorrel::cli {

/// True for a title that does not identify the item: no word of three letters or more in it except those that
/// many programs use ("index", "content-v2", "0001.jpg") and hexadecimal numbers.
bool isVague(std::string_view title);

/// The texts of a scan's rows.
class RowTitles {
 public:
  explicit RowTitles(const FeatureInformation& feature);

  /// The title; with the name of the parent folder if the title is vague, or several records of the scan
  /// share it.
  [[nodiscard]] std::string of(const FileInformation& record) const;

 private:
  void count(const Children<FileInformation>& records);

  std::unordered_map<std::string_view, std::size_t> counts_;  // views of the records' own titles
};

}  // namespace sorrel::cli
