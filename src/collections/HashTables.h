#pragma once

#include <algorithm>
#include <list>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <vector>

namespace harbor {

namespace detail {

// A map that remembers the order in which keys first came, over any
// sequence of keys. Re-adding a key keeps its place.
template <typename K, typename V, typename Order>
class InsertionOrderedTable {
 public:
  void removeObjectForKey(const K& key) {
    if (_hashTable.erase(key)) std::erase(_orderSet, key);
  }
  std::optional<V> objectForKey(const K& key) const {
    auto it = _hashTable.find(key);
    if (it == _hashTable.end()) return std::nullopt;
    return it->second;
  }
  void removeAll() {
    _orderSet.clear();
    _hashTable.clear();
  }
  // The objects in key order.
  std::vector<V> objects() const {
    std::vector<V> out;
    out.reserve(_hashTable.size());
    for (const K& key : _orderSet) out.push_back(_hashTable.at(key));
    return out;
  }
  std::size_t count() const { return _hashTable.size(); }
  auto begin() const { return _orderSet.begin(); }
  auto end() const { return _orderSet.end(); }

 protected:
  // Only a new key joins the order; replacing a value keeps its place.
  void put(const V& object, const K& key) {
    if (_hashTable.insert_or_assign(key, object).second) _orderSet.push_back(key);
  }

 private:
  Order _orderSet;
  std::unordered_map<K, V> _hashTable;
};

}  // namespace detail

template <typename K, typename V>
class OrderedHashTable : public detail::InsertionOrderedTable<K, V, std::vector<K>> {
 public:
  void addObject(const V& object, const K& key) { this->put(object, key); }
};

// The same contract over a list of keys; adding is safe from several threads,
// removal is not.
template <typename K, typename V>
class LinkedHashTable : public detail::InsertionOrderedTable<K, V, std::list<K>> {
 public:
  void addObject(const V& object, const K& key) {
    std::lock_guard lock(monitor_);
    this->put(object, key);
  }

 private:
  std::mutex monitor_;
};

}  // namespace harbor
