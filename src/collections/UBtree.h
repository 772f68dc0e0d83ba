#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace harbor {

// A B-tree of order 3 kept as arrays of entries: entry i of a node holds a key,
// its value and the subtree of keys below that key; the trailing entry of a
// node with `_count` keys holds only the subtree of the keys above the last.
template <typename K, typename V>
class UBtree {
 public:
  struct UNode;
  struct UEntry {
    std::optional<K> _key;
    std::optional<V> _value;
    std::shared_ptr<UNode> _next;
    bool isEmpty() const { return !_key && !_value; }
  };
  struct UNode {
    std::uint64_t _count = 0;
    std::vector<UEntry> _children = std::vector<UEntry>(4);
    UEntry& at(std::size_t i) {
      if (_children.size() <= i) _children.resize(i + 1);
      return _children[i];
    }
  };
  using CompareBlock = std::function<int(const K&, const K&)>;

  explicit UBtree(CompareBlock compare = defaultCompare) : _compareBlock(std::move(compare)) {}

  void insert(const K& key, const V& value) {
    if (!_root) {
      _root = addFirstChild(key, value, nullptr);
      return;
    }
    insertNode(*_root, key, value);
    if (_root->_count >= _maxWay) {
      auto [midKey, midValue, sibling] = splitNode(*_root);
      auto root = addFirstChild(midKey, midValue, _root);
      root->at(1)._next = sibling;
      _root = root;
    }
  }

  std::optional<V> get(const K& key) const {
    const UNode* node = _root.get();
    while (node) {
      std::size_t i = lowerIndex(*node, key);
      if (i < node->_count && _compareBlock(*node->_children[i]._key, key) == 0) {
        return node->_children[i]._value;
      }
      node = node->_children[i]._next.get();
    }
    return std::nullopt;
  }

  // Answers whether the key was there.
  bool deleteKey(const K& key) {
    if (!_root) return false;
    bool found = deleteNode(*_root, key);
    if (_root->_count == 0) _root = _root->_children[0]._next;
    return found;
  }

  std::uint64_t depth() const { return depthOf(_root.get()); }
  bool isEmpty() const { return !_root; }

 private:
  static int defaultCompare(const K& a, const K& b) { return a < b ? -1 : (b < a ? 1 : 0); }

  std::shared_ptr<UNode> addFirstChild(const K& key, const V& value, std::shared_ptr<UNode> next) {
    auto node = std::make_shared<UNode>();
    node->_children[0] = UEntry{key, value, std::move(next)};
    node->_count = 1;
    return node;
  }

  std::size_t lowerIndex(const UNode& node, const K& key) const {
    std::size_t i = 0;
    while (i < node._count && _compareBlock(*node._children[i]._key, key) < 0) ++i;
    return i;
  }

  void insertNode(UNode& node, const K& key, const V& value) {
    std::size_t i = lowerIndex(node, key);
    UEntry& entry = node.at(i);
    if (i < node._count && _compareBlock(*entry._key, key) == 0) {
      entry._value = value;
      return;
    }
    if (entry._next) {
      std::shared_ptr<UNode> child = entry._next;
      insertNode(*child, key, value);
      if (child->_count < _maxWay) return;
      auto [midKey, midValue, sibling] = splitNode(*child);
      shiftRight(node, i);
      node._children[i] = UEntry{midKey, midValue, child};
      node._children[i + 1]._next = sibling;
      return;
    }
    shiftRight(node, i);
    node._children[i] = UEntry{key, value, nullptr};
  }

  // Opens slot i, moving entries i..count (the trailing one too) right.
  void shiftRight(UNode& node, std::size_t i) {
    node.at(node._count + 1);
    for (std::size_t j = node._count + 1; j > i; --j) node._children[j] = node._children[j - 1];
    ++node._count;
  }

  std::tuple<K, V, std::shared_ptr<UNode>> splitNode(UNode& node) {
    const std::size_t mid = _maxWay / 2;
    UEntry up = node._children[mid];
    auto sibling = std::make_shared<UNode>();
    for (std::size_t j = mid + 1; j <= node._count; ++j) {
      sibling->at(j - mid - 1) = node._children[j];
      node._children[j] = UEntry{};
    }
    sibling->_count = node._count - mid - 1;
    node._children[mid] = UEntry{std::nullopt, std::nullopt, up._next};
    node._count = mid;
    return {*up._key, *up._value, sibling};
  }

  bool deleteNode(UNode& node, const K& key) {
    std::size_t i = lowerIndex(node, key);
    UEntry& entry = node._children[i];
    if (i < node._count && _compareBlock(*entry._key, key) == 0) {
      UNode* left = entry._next.get();
      UNode* right = node._children[i + 1]._next.get();
      if (!left && !right) {
        for (std::size_t j = i; j < node._count; ++j) {
          node._children[j] = node._children[j + 1];
        }
        node._children[node._count] = UEntry{};
        --node._count;
        return true;
      }
      // Borrow from the fuller side so the tree stays shallow.
      bool fromLeft = left && (!right || left->_count > right->_count);
      UEntry& side = fromLeft ? entry : node._children[i + 1];
      UEntry moved = fromLeft ? getLarget(*side._next) : getSmallest(*side._next);
      deleteNode(*side._next, *moved._key);
      collapse(side);
      entry._key = moved._key;
      entry._value = moved._value;
      return true;
    }
    if (!entry._next) return false;
    bool found = deleteNode(*entry._next, key);
    collapse(entry);
    return found;
  }

  static UEntry getLarget(const UNode& start) {
    const UNode* node = &start;
    while (node->_children[node->_count]._next) node = node->_children[node->_count]._next.get();
    return node->_children[node->_count - 1];
  }
  static UEntry getSmallest(const UNode& start) {
    const UNode* node = &start;
    while (node->_children[0]._next) node = node->_children[0]._next.get();
    return node->_children[0];
  }

  // A subtree emptied by a deletion gives way to its only child.
  static void collapse(UEntry& entry) {
    while (entry._next && entry._next->_count == 0) entry._next = entry._next->_children[0]._next;
  }

  static std::uint64_t depthOf(const UNode* node) {
    if (!node) return 0;
    std::uint64_t deepest = 0;
    for (std::size_t i = 0; i <= node->_count; ++i) {
      deepest = std::max(deepest, depthOf(node->_children[i]._next.get()));
    }
    return deepest + 1;
  }

  std::uint64_t _maxWay = 3;
  std::shared_ptr<UNode> _root;
  CompareBlock _compareBlock;
};

}  // namespace harbor
