#include "SorrelFramework/Clean/RecordSet.hpp"

#include <iterator>

namespace sorrel {

bool RecordSet::insert(const Ref<FileInformation>& record) {
  if (places_.contains(record)) return false;
  order_.push_back(record);
  places_.emplace(record, std::prev(order_.end()));
  return true;
}

bool RecordSet::remove(const Ref<FileInformation>& record) {
  const auto place = places_.find(record);
  if (place == places_.end()) return false;
  order_.erase(place->second);
  places_.erase(place);
  return true;
}

}  // namespace sorrel
