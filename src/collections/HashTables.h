#pragma once

#include <algorithm>
#include <list>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <vector>

namespace harbor {

// A map that remembers the order in which keys first came. Re-adding a key
// keeps its place.
template <typename K, typename V>
class OrderedHashTable {
 public:
  void addObject(const V& object, const K& key) {
    if (!_hashTable.contains(key)) _orderSet.push_back(key);
    _hashTable[key] = object;
  }
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
    out.reserve(_orderSet.size());
    for (const K& key : _orderSet) out.push_back(_hashTable.at(key));
    return out;
  }
  std::size_t count() const { return _hashTable.size(); }
  auto begin() const { return _orderSet.begin(); }
  auto end() const { return _orderSet.end(); }

 private:
  std::vector<K> _orderSet;
  std::unordered_map<K, V> _hashTable;
};

// The same contract over a list of keys; adding is safe from several threads,
// removal is not.
template <typename K, typename V>
class LinkedHashTable {
 public:
  void addObject(const V& object, const K& key) {
    std::lock_guard lock(monitor_);
    std::size_t before = _hashTable.size();
    _hashTable[key] = object;
    // Only a new key joins the order; replacing a value keeps its place.
    if (_hashTable.size() > before) _orderSet.push_back(key);
  }
  void removeObjectForKey(const K& key) {
    if (_hashTable.erase(key)) _orderSet.remove(key);
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
  std::vector<V> objects() const {
    std::vector<V> out;
    out.reserve(_orderSet.size());
    for (const K& key : _orderSet) out.push_back(_hashTable.at(key));
    return out;
  }
  std::size_t count() const { return _hashTable.size(); }
  auto begin() const { return _orderSet.begin(); }
  auto end() const { return _orderSet.end(); }

 private:
  std::mutex monitor_;
  std::list<K> _orderSet;
  std::unordered_map<K, V> _hashTable;
};

}  // namespace harbor
