#pragma once

#include <cstddef>
#include <memory>
#include <utility>

namespace harbor {

template <typename T>
struct SingleLinkedNode {
  explicit SingleLinkedNode(T value) : _value(std::move(value)) {}
  T _value;
  std::shared_ptr<SingleLinkedNode> _next;
};

// A singly linked list whose callers hold nodes; operations on a node that is
// not in the list do nothing.
template <typename T>
class SingleLinkedList {
 public:
  using Node = std::shared_ptr<SingleLinkedNode<T>>;

  ~SingleLinkedList() { clear(); }

  std::size_t count() const {
    std::size_t n = 0;
    for (Node node = _first; node; node = node->_next) ++n;
    return n;
  }
  bool isEmpty() const { return !_first; }
  Node firstNode() const { return _first; }
  Node lastNode() const {
    Node node = _first;
    while (node && node->_next) node = node->_next;
    return node;
  }
  // The node before `node`, or null when it is first or absent.
  Node beforeNode(const Node& node) const {
    for (Node at = _first; at; at = at->_next) {
      if (at->_next == node) return at;
    }
    return nullptr;
  }
  // A null position puts the node first.
  void insertBefore(const Node& node, const Node& position) {
    if (!node) return;
    if (!position || position == _first) {
      node->_next = _first;
      _first = node;
      return;
    }
    Node before = beforeNode(position);
    if (!before) return;
    node->_next = position;
    before->_next = node;
  }
  void insertAfter(const Node& node) { insertAfter(node, lastNode()); }
  void insertAfter(const Node& node, const Node& position) {
    if (!node) return;
    if (!position) {
      if (_first) return insertAfter(node, lastNode());
      node->_next = nullptr;
      _first = node;
      return;
    }
    node->_next = position->_next;
    position->_next = node;
  }
  // By value: callers pass the list's own first node.
  void deleteNode(Node node) {
    if (!node || !_first) return;
    if (node == _first) {
      _first = node->_next;
      node->_next = nullptr;
      return;
    }
    Node before = beforeNode(node);
    if (!before) return;
    before->_next = node->_next;
    node->_next = nullptr;
  }
  void deleteFirstNode() { deleteNode(_first); }
  void deleteLastNode() { deleteNode(lastNode()); }
  // Unlinks node by node, so a long list does not recurse in its destructor.
  void clear() {
    while (_first) _first = std::exchange(_first->_next, nullptr);
  }

 private:
  Node _first;
};

}  // namespace harbor
