#include "Tests/Support/CleanCases.hpp"

#include <algorithm>
#include <cstddef>

namespace sorrel::test {
namespace {

using Node = CleanCase::Node;
using Chain = std::vector<const Node*>;  // a leaf after the records above it

constexpr int kDeepest = 3;

bool isDecided(const Node* node) { return node->state == 1 || node->state == 0; }

void addLeaves(const Node& node, Chain& above, std::vector<Chain>& leaves) {
  above.push_back(&node);
  if (node.childrens.empty()) leaves.push_back(above);
  for (const Node& child : node.childrens) addLeaves(child, above, leaves);
  above.pop_back();
}

/// The record whose selection deletes a leaf: if `above` is on, the first one there; if it is mixed, the
/// first that is on or off, if that is on. Null if the leaf is not selected.
const Node* firstDecision(const Chain& chain, std::size_t from, Integer above) {
  if (above == 0 || from >= chain.size()) return nullptr;
  if (above == 1) return chain[from];
  const auto decision =
      std::find_if(chain.begin() + static_cast<std::ptrdiff_t>(from), chain.end(), isDecided);
  return decision != chain.end() && (*decision)->state == 1 ? *decision : nullptr;
}

const Node* selectingRecord(CleanCase::Entry entry, Integer categoryState, const Chain& chain) {
  switch (entry) {
    case CleanCase::Entry::Categorys:
      return firstDecision(chain, 0, categoryState);
    case CleanCase::Entry::Groups:
      return firstDecision(chain, 1, chain[0]->state);
    case CleanCase::Entry::LargeAndOld:
      return chain[0]->state == 1 ? chain[0] : nullptr;
  }
  return nullptr;
}

void addFailed(const Node& node, CleanCase::Outcome& outcome) {
  for (const Node& child : node.childrens) addFailed(child, outcome);
  if (!node.childrens.empty()) return;
  const Integer status = outcome.leaves[node.name].status;
  // A leaf without a status was not selected.
  if (status != rawValue(DeleteStatus::None) && status != rawValue(DeleteStatus::DeleteSuccess)) {
    outcome.failed.push_back(node.name);
  }
}

Ref<FileInformation> makeTreeOf(const Node& node, Integer finderID, const TemporaryVolume& volume,
                                std::map<std::string, Ref<FileInformation>>& leaves) {
  std::vector<Ref<FileInformation>> childrens;
  for (const Node& child : node.childrens) {
    childrens.push_back(makeTreeOf(child, static_cast<Integer>(childrens.size()), volume, leaves));
  }
  auto record = makeRecord({URL::fileURL(volume.path(node.name), false), node.state, node.size,
                            node.canDelete, childrens, finderID});
  if (node.childrens.empty()) leaves[node.name] = record;
  return record;
}

void makeFilesOf(const Node& node, const TemporaryVolume& volume) {
  switch (node.kind) {
    case CleanCase::Kind::Folder:
      volume.file(node.name + "/keep", "kept");
      break;
    case CleanCase::Kind::File:
      volume.file(node.name, node.name);
      break;
    case CleanCase::Kind::Package:
      volume.file(node.name + "/in/side", "x");
      break;
    case CleanCase::Kind::Link:
      volume.link(node.name, volume.path("kept"));
      break;
    case CleanCase::Kind::Missing:
      break;
  }
  for (const Node& child : node.childrens) makeFilesOf(child, volume);
}

}  // namespace

CleanCase::CleanCase(unsigned seed) : random_(seed) {
  constexpr Entry kEntries[] = {Entry::Categorys, Entry::Categorys, Entry::Groups, Entry::LargeAndOld};
  constexpr Helper kHelpers[] = {Helper::Deletes, Helper::Deletes, Helper::SendsNothing, Helper::Refused};
  entry = kEntries[pick(4)];
  helper = kHelpers[pick(4)];
  const int count = entry == Entry::Categorys ? pick(4) : 1;
  for (int i = 0; i < count; ++i) {
    Category category{anyState(), pick(2) == 0, {}};
    const int records = pick(5);
    for (int j = 0; j < records; ++j) {
      category.childrens.push_back(anyNode("c" + std::to_string(i) + "-" + std::to_string(j), 0));
    }
    categorys.push_back(std::move(category));
  }
}

Integer CleanCase::anyState() {
  constexpr Integer kStates[] = {1, 1, 0, -1, -1, -1, 9};
  return kStates[pick(7)];
}

CleanCase::Node CleanCase::anyNode(const std::string& name, int depth) {
  constexpr Kind kLeaves[] = {Kind::File, Kind::File, Kind::File, Kind::Package, Kind::Link, Kind::Missing};
  Node node{name, kLeaves[pick(6)], anyState(), pick(1000), pick(4) != 0, {}};
  const int childrens = depth == kDeepest || pick(2) == 0 ? 0 : 1 + pick(3);
  for (int i = 0; i < childrens; ++i) {
    node.kind = Kind::Folder;
    node.childrens.push_back(anyNode(name + "/n" + std::to_string(i), depth + 1));
  }
  if (pick(6) == 0) userFails.insert(name);
  if (pick(2) == 0) helperRefuses.insert(name);
  return node;
}

void CleanCase::makeFiles(const TemporaryVolume& volume) const {
  volume.file("kept", "what links lead to");
  for (const Category& category : categorys) {
    for (const Node& node : category.childrens) makeFilesOf(node, volume);
  }
}

std::vector<Ref<CategoryInformation>> CleanCase::makeTree(
    const CleanStage& stage, std::map<std::string, Ref<FileInformation>>& leaves) const {
  std::vector<Ref<CategoryInformation>> tree;
  for (const Category& category : categorys) {
    std::vector<Ref<FileInformation>> records;
    for (const Node& node : category.childrens) {
      records.push_back(makeTreeOf(node, static_cast<Integer>(records.size()), stage.volume, leaves));
    }
    tree.push_back(makeCategory(stage.feature, category.state, records, category.needRemove));
  }
  return tree;
}

CleanCase::Outcome CleanCase::outcome() const {
  Outcome result;
  addDeletions(result);
  addRepair(result);
  return result;
}

void CleanCase::addDeletions(Outcome& result) const {
  std::map<const Node*, std::vector<const Node*>> selected;  // leaves by the record that deletes them
  for (const Category& category : categorys) {
    for (const Node& top : category.childrens) {
      Chain above;
      std::vector<Chain> chains;
      addLeaves(top, above, chains);
      for (const Chain& chain : chains) {
        result.leaves[chain.back()->name] = {rawValue(DeleteStatus::None),
                                             chain.back()->kind == Kind::Missing};
        const Node* record = selectingRecord(entry, category.state, chain);
        if (record != nullptr) selected[record].push_back(chain.back());
      }
    }
  }
  for (const auto& [record, leaves] : selected) {
    const bool isTried = record->canDelete;
    bool isAnyLeft = !isTried;
    for (const Node* leaf : leaves) {
      Fate& fate = result.leaves[leaf->name];
      fate.status = rawValue(DeleteStatus::Deleteing);
      if (!isTried) continue;
      const bool fails = leaf->kind == Kind::Missing || userFails.contains(leaf->name);
      isAnyLeft = isAnyLeft || fails;
      fate.status = rawValue(fails ? DeleteStatus::DeleteError : DeleteStatus::DeleteSuccess);
      fate.isGone = fate.isGone || !fails;
    }
    if (!isAnyLeft) result.size += record->size;
    if (isAnyLeft && helper == Helper::Refused) result.status = rawValue(DeleteStatus::DeleteError);
    if (!isAnyLeft || helper != Helper::Deletes) continue;
    for (const Node* leaf : leaves) {
      Fate& fate = result.leaves[leaf->name];
      const bool isDeleted = fate.isGone || !helperRefuses.contains(leaf->name);
      fate.status = rawValue(isDeleted ? DeleteStatus::DeleteSuccess : DeleteStatus::DeleteError);
      fate.isGone = isDeleted;
      if (isDeleted) result.size += leaf->size;
    }
  }
}

void CleanCase::addRepair(Outcome& result) const {
  const auto isGone = [&result](const Node& leaf) {
    return leaf.state == 1 && result.leaves[leaf.name].status == rawValue(DeleteStatus::DeleteSuccess);
  };
  const std::function<void(const Node&)> addWhatStays = [&](const Node& node) {
    result.tree.push_back(node.name);
    for (const Node& child : node.childrens) {
      // A folder below a record that stays is emptied at most.
      if (!child.childrens.empty() || !isGone(child)) addWhatStays(child);
    }
  };
  for (std::size_t i = 0; i < categorys.size(); ++i) {
    const Category& category = categorys[i];
    std::vector<const Node*> stay;
    for (const Node& top : category.childrens) {
      const std::size_t before = result.failed.size();
      if (category.state != 0) addFailed(top, result);
      if (category.state == 0 || result.failed.size() > before || top.state != 1) stay.push_back(&top);
    }
    if (category.state != 0 && category.needRemove && stay.empty()) continue;
    result.tree.push_back(std::to_string(i));
    for (const Node* top : stay) addWhatStays(*top);
  }
}

}  // namespace sorrel::test
