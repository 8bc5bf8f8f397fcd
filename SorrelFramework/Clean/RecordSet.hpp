#pragma once

#include <cstddef>
#include <initializer_list>
#include <list>
#include <unordered_map>

#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Scan/ScanTypes.hpp"

namespace sorrel {

/// A set of records, compared by content, in the order of insertion. If two records are equal it keeps the
/// first. The fields that make records equal (finderID, parentFinderID, size, url) must not change while a
/// record is in a set that is still searched: it would not be found again.
class RecordSet {
 public:
  using const_iterator = std::list<Ref<FileInformation>>::const_iterator;

  RecordSet() = default;
  RecordSet(std::initializer_list<Ref<FileInformation>> records) {
    for (const Ref<FileInformation>& record : records) insert(record);
  }
  RecordSet(RecordSet&&) noexcept = default;
  RecordSet& operator=(RecordSet&&) noexcept = default;
  RecordSet(const RecordSet&) = delete;  // the index points into the order
  RecordSet& operator=(const RecordSet&) = delete;
  ~RecordSet() = default;

  /// False if an equal record is there already.
  bool insert(const Ref<FileInformation>& record);
  /// False if there is no equal record.
  bool remove(const Ref<FileInformation>& record);
  [[nodiscard]] bool contains(const Ref<FileInformation>& record) const { return places_.contains(record); }

  [[nodiscard]] std::size_t size() const noexcept { return order_.size(); }
  [[nodiscard]] bool empty() const noexcept { return order_.empty(); }
  [[nodiscard]] const_iterator begin() const noexcept { return order_.begin(); }
  [[nodiscard]] const_iterator end() const noexcept { return order_.end(); }
  /// A copy of the current records, in order.
  [[nodiscard]] FileRecords records() const { return {order_.begin(), order_.end()}; }

 private:
  std::list<Ref<FileInformation>> order_;
  std::unordered_map<Ref<FileInformation>, const_iterator, RecordHash, RecordEqual> places_;
};

}  // namespace sorrel
