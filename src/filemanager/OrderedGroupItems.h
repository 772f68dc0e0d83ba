#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

namespace harbor {

// Items in sorted groups, for grouped lists: each item has a key of its own
// and a group key; groups and the items in each group are kept sorted by
// their comparators. An item added under a key already held replaces the
// one held. Iterating visits the group keys in order. Safe to share between
// threads.
template <typename Item, typename ItemKey, typename GroupKey>
class OrderedGroupItems {
 public:
  using ItemKeyBlock = std::function<ItemKey(const Item&)>;
  using GroupKeyBlock = std::function<GroupKey(const Item&)>;
  using GroupComparator = std::function<bool(const GroupKey&, const GroupKey&)>;
  using ItemComparator = std::function<bool(const Item&, const Item&)>;

  struct IndexPath {
    std::size_t section = 0;
    std::size_t row = 0;
  };

  OrderedGroupItems(ItemKeyBlock itemsInfoBlock, GroupComparator groupKeySetComparator,
                    GroupKeyBlock groupKeySetBlock, ItemComparator groupItemsInfoComparator)
      : _itemsInfoBlock(std::move(itemsInfoBlock)),
        _groupKeySetComparator(std::move(groupKeySetComparator)),
        _groupKeySetBlock(std::move(groupKeySetBlock)),
        _groupItemsInfoComparator(std::move(groupItemsInfoComparator)) {}

  // Every item, group after group.
  std::vector<Item> objects() const {
    std::lock_guard lock(mutex_);
    std::vector<Item> out;
    for (const auto& key : _groupKeySet) {
      const auto& group = _groupItemsInfo.at(key);
      out.insert(out.end(), group.begin(), group.end());
    }
    return out;
  }
  // The number of groups.
  std::size_t count() const {
    std::lock_guard lock(mutex_);
    return _groupKeySet.size();
  }
  std::map<ItemKey, Item> items() const {
    std::lock_guard lock(mutex_);
    return _itemsInfo;
  }
  std::vector<GroupKey> groupKeys() const {
    std::lock_guard lock(mutex_);
    return _groupKeySet;
  }
  std::optional<GroupKey> groupKey(std::size_t section) const {
    std::lock_guard lock(mutex_);
    if (section >= _groupKeySet.size()) return std::nullopt;
    return _groupKeySet[section];
  }
  std::vector<Item> childItems(std::size_t section) const {
    std::lock_guard lock(mutex_);
    if (section >= _groupKeySet.size()) return {};
    return _groupItemsInfo.at(_groupKeySet[section]);
  }
  std::vector<Item> childItemsByGroupKey(const GroupKey& key) const {
    std::lock_guard lock(mutex_);
    auto it = _groupItemsInfo.find(key);
    return it == _groupItemsInfo.end() ? std::vector<Item>{} : it->second;
  }
  // The group the item belongs in.
  std::vector<Item> childItemsByObject(const Item& item) const {
    return childItemsByGroupKey(_groupKeySetBlock(item));
  }
  std::optional<Item> itemForIndexPath(IndexPath indexPath) const {
    return itemForIndexPath(indexPath.section, indexPath.row);
  }
  std::optional<Item> itemForIndexPath(std::size_t section, std::size_t row) const {
    std::lock_guard lock(mutex_);
    if (section >= _groupKeySet.size()) return std::nullopt;
    const auto& group = _groupItemsInfo.at(_groupKeySet[section]);
    if (row >= group.size()) return std::nullopt;
    return group[row];
  }
  std::optional<Item> getFrist() const {
    std::lock_guard lock(mutex_);
    if (_groupKeySet.empty()) return std::nullopt;
    return _groupItemsInfo.at(_groupKeySet.front()).front();
  }
  std::optional<Item> getLast() const {
    std::lock_guard lock(mutex_);
    if (_groupKeySet.empty()) return std::nullopt;
    return _groupItemsInfo.at(_groupKeySet.back()).back();
  }
  std::optional<Item> objectForKey(const ItemKey& key) const {
    std::lock_guard lock(mutex_);
    auto it = _itemsInfo.find(key);
    if (it == _itemsInfo.end()) return std::nullopt;
    return it->second;
  }

  void addObject(const Item& item) {
    std::lock_guard lock(mutex_);
    const GroupKey groupKey = _groupKeySetBlock(item);
    const ItemKey itemKey = _itemsInfoBlock(item);
    auto slot = std::lower_bound(_groupKeySet.begin(), _groupKeySet.end(), groupKey,
                                 _groupKeySetComparator);
    if (slot == _groupKeySet.end() || _groupKeySetComparator(groupKey, *slot)) {
      _groupKeySet.insert(slot, groupKey);
    }
    std::optional<Item> older;
    if (auto it = _itemsInfo.find(itemKey); it != _itemsInfo.end()) older = it->second;
    _itemsInfo.insert_or_assign(itemKey, item);
    if (older) {
      // The replaced item may sit in another group.
      const GroupKey oldGroup = _groupKeySetBlock(*older);
      if (auto g = _groupItemsInfo.find(oldGroup); g != _groupItemsInfo.end()) {
        groupRemoveItem(*older, g->second);
        if (g->second.empty() && !(oldGroup == groupKey)) dropGroup(oldGroup);
      }
    }
    auto& group = _groupItemsInfo[groupKey];
    group.insert(std::upper_bound(group.begin(), group.end(), item, _groupItemsInfoComparator),
                 item);
  }

  // Removes the first member of `groupItems` whose key is the item's key.
  void groupRemoveItem(const Item& item, std::vector<Item>& groupItems) const {
    const ItemKey key = _itemsInfoBlock(item);
    auto it = std::find_if(groupItems.begin(), groupItems.end(),
                           [&](const Item& member) { return _itemsInfoBlock(member) == key; });
    if (it != groupItems.end()) groupItems.erase(it);
  }

  // Takes an item, not a key.
  void removeObjectForKey(const Item& item) {
    std::lock_guard lock(mutex_);
    _itemsInfo.erase(_itemsInfoBlock(item));
    const GroupKey groupKey = _groupKeySetBlock(item);
    auto g = _groupItemsInfo.find(groupKey);
    if (g == _groupItemsInfo.end()) return;
    groupRemoveItem(item, g->second);
    if (g->second.empty()) dropGroup(groupKey);
  }

  void removeObjectByGroupKey(const GroupKey& groupKey) {
    std::lock_guard lock(mutex_);
    auto g = _groupItemsInfo.find(groupKey);
    if (g == _groupItemsInfo.end()) return;
    for (const auto& item : g->second) _itemsInfo.erase(_itemsInfoBlock(item));
    dropGroup(groupKey);
  }

  void removeAll() {
    std::lock_guard lock(mutex_);
    _groupKeySet.clear();
    _groupItemsInfo.clear();
    _itemsInfo.clear();
  }

  auto begin() const { return GroupKeyIterator{groupKeys(), 0}; }
  auto end() const { return GroupKeyIterator{{}, SIZE_MAX}; }

 private:
  // Iterates over a snapshot of the group keys.
  struct GroupKeyIterator {
    std::vector<GroupKey> keys;
    std::size_t index;
    const GroupKey& operator*() const { return keys[index]; }
    GroupKeyIterator& operator++() {
      ++index;
      return *this;
    }
    bool operator!=(const GroupKeyIterator& other) const {
      return (index < keys.size()) != (other.index < other.keys.size());
    }
  };

  void dropGroup(const GroupKey& groupKey) {
    _groupItemsInfo.erase(groupKey);
    auto slot = std::lower_bound(_groupKeySet.begin(), _groupKeySet.end(), groupKey,
                                 _groupKeySetComparator);
    if (slot != _groupKeySet.end() && !_groupKeySetComparator(groupKey, *slot)) {
      _groupKeySet.erase(slot);
    }
  }

  mutable std::mutex mutex_;
  std::vector<GroupKey> _groupKeySet;
  std::map<GroupKey, std::vector<Item>> _groupItemsInfo;
  std::map<ItemKey, Item> _itemsInfo;
  ItemKeyBlock _itemsInfoBlock;
  GroupComparator _groupKeySetComparator;
  GroupKeyBlock _groupKeySetBlock;
  ItemComparator _groupItemsInfoComparator;
};

}  // namespace harbor
