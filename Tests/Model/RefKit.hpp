#pragma once

#include <gtest/gtest.h>

#include <any>
#include <memory>
#include <utility>

#include "SorrelFramework/Model/Children.hpp"
#include "SorrelFramework/Model/ParentLink.hpp"
#include "SorrelFramework/Model/Ref.hpp"

namespace sorrel::test {

/// A record with all parts of the tree's records: children, two parents, a payload.
class Node final : public TreeNode {
 public:
  explicit Node(std::any newPayload = {}, const Ref<Node>& newParent = {}, const Ref<Node>& newOwner = {})
      : payload(std::move(newPayload)),
        children(FieldOf(*this)),
        owner(FieldOf(*this), newOwner.get()),
        parent(FieldOf(*this), newParent.get()) {}

  std::any payload;
  Children<Node> children;
  ParentLink<Node> owner;
  ParentLink<Node> parent;

 private:
  ~Node() override = default;
  void dropChildren() noexcept override { children.clear(); }
  [[nodiscard]] Parents parents() const noexcept override { return {{owner.get(), parent.get()}}; }
};

/// Reports through a payload whether a record lives.
class Life {
 public:
  /// The payload for the watched record; to be called once.
  [[nodiscard]] std::any watch() { return std::exchange(held_, nullptr); }
  [[nodiscard]] bool over() const { return watched_.expired(); }

 private:
  std::shared_ptr<int> held_ = std::make_shared<int>(0);
  std::weak_ptr<int> watched_ = held_;
};

/// root > middle > leaf, each with a link to the one above.
struct Chain {
  Life rootLife, middleLife, leafLife;
  Ref<Node> root = makeRef<Node>(rootLife.watch());
  Ref<Node> middle = makeRef<Node>(middleLife.watch(), root);
  Ref<Node> leaf = makeRef<Node>(leafLife.watch(), middle);

  Chain() {
    root->children.push_back(middle);
    middle->children.push_back(leaf);
  }
};

}  // namespace sorrel::test
