#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/Unicode.h"

namespace harbor {

// The block answers -1, 0 or 1 for two items.
template <typename T>
using SortBlock = std::function<int(const T&, const T&)>;

// Quicksort over a private copy of the items; indexes are inclusive.
template <typename T>
class UQuickSort {
 public:
  UQuickSort(std::vector<T> items, SortBlock<T> sortBlock)
      : resultStrucs(items),
        _sortBlock(std::move(sortBlock)),
        _items(std::move(items)),
        _result(_items) {}

  // Median-of-three sort of resultStrucs[start..end].
  void sortedItems(std::ptrdiff_t start, std::ptrdiff_t end) {
    while (start < end) {
      std::ptrdiff_t size = end - start + 1;
      if (size == 2) return sort2Object(start, end);
      if (size == 3) return media3Void(start, end);
      T pivot = media3(start, end);
      // media3 left the pivot at end-1 and ordered both ends around it.
      std::ptrdiff_t i = start, j = end - 1;
      for (;;) {
        while (_sortBlock(resultStrucs[++i], pivot) < 0) {
        }
        while (_sortBlock(pivot, resultStrucs[--j]) < 0) {
        }
        if (i >= j) break;
        std::swap(resultStrucs[i], resultStrucs[j]);
      }
      std::swap(resultStrucs[i], resultStrucs[end - 1]);
      sortedItems(start, i - 1);
      start = i + 1;  // the second half as a loop instead of a tail call
    }
  }

  // Single-pivot variant on _result, the first element making the hole.
  void sortedItems2(std::ptrdiff_t start, std::ptrdiff_t end) {
    while (start < end) {
      T pivot = _result[start];
      std::ptrdiff_t i = start, j = end;
      while (i < j) {
        while (i < j && _sortBlock(_result[j], pivot) >= 0) --j;
        _result[i] = _result[j];
        while (i < j && _sortBlock(_result[i], pivot) <= 0) ++i;
        _result[j] = _result[i];
      }
      _result[i] = pivot;
      sortedItems2(start, i - 1);
      start = i + 1;
    }
  }

  // Orders left, middle and right, parks the median at right-1 and answers it.
  T media3(std::ptrdiff_t left, std::ptrdiff_t right) {
    std::ptrdiff_t center = left + (right - left) / 2;
    if (_sortBlock(resultStrucs[center], resultStrucs[left]) < 0)
      std::swap(resultStrucs[left], resultStrucs[center]);
    if (_sortBlock(resultStrucs[right], resultStrucs[left]) < 0)
      std::swap(resultStrucs[left], resultStrucs[right]);
    if (_sortBlock(resultStrucs[right], resultStrucs[center]) < 0)
      std::swap(resultStrucs[center], resultStrucs[right]);
    std::swap(resultStrucs[center], resultStrucs[right - 1]);
    return resultStrucs[right - 1];
  }
  void media3Void(std::ptrdiff_t left, std::ptrdiff_t right) {
    std::ptrdiff_t center = left + 1;
    if (_sortBlock(resultStrucs[center], resultStrucs[left]) < 0)
      std::swap(resultStrucs[left], resultStrucs[center]);
    if (_sortBlock(resultStrucs[right], resultStrucs[left]) < 0)
      std::swap(resultStrucs[left], resultStrucs[right]);
    if (_sortBlock(resultStrucs[right], resultStrucs[center]) < 0)
      std::swap(resultStrucs[center], resultStrucs[right]);
  }
  void sort2Object(std::ptrdiff_t left, std::ptrdiff_t right) {
    if (_sortBlock(resultStrucs[right], resultStrucs[left]) < 0)
      std::swap(resultStrucs[left], resultStrucs[right]);
  }

  const std::vector<T>& sorted() const { return resultStrucs; }
  const std::vector<T>& result() const { return _result; }

 private:
  std::vector<T> resultStrucs;
  SortBlock<T> _sortBlock;
  std::vector<T> _items;
  std::vector<T> _result;
};

// Top-down merge sort. Not stable: on equal keys the right half's element
// goes first.
template <typename T>
class UMergeSort {
 public:
  UMergeSort(std::vector<T> items, SortBlock<T> sortBlock)
      : _sortBlock(std::move(sortBlock)), _items(std::move(items)) {}

  std::vector<T> sortedItems(std::size_t start, std::size_t end) {
    if (start > end || end >= _items.size()) return {};
    if (end - start < 2) return getSortedItems(start, end);
    std::size_t mid = start + (end - start) / 2;
    return combineItems(sortedItems(start, mid), sortedItems(mid + 1, end));
  }

  // The same split over _result, merging with a case-insensitive comparison
  // of strings instead of the block.
  std::vector<T> sortedItems6(std::size_t start, std::size_t end) {
    static_assert(std::is_same_v<T, std::u16string> || std::is_same_v<T, std::string>,
                  "sortedItems6 compares strings");
    if (start > end || end >= _items.size()) return {};
    _result = _items;
    _tempResult.assign(_items.size(), T{});
    mergeRange6(start, end);
    return std::vector<T>(_result.begin() + start, _result.begin() + end + 1);
  }

  // Ranges of one or two elements, ordered.
  std::vector<T> getSortedItems(std::size_t start, std::size_t end) {
    if (start == end) return {_items[start]};
    std::vector<T> out{_items[start], _items[end]};
    if (_sortBlock(out[0], out[1]) > 0) exchangeValue(out, 0, 1);
    return out;
  }

  std::vector<T> combineItems(const std::vector<T>& items1, const std::vector<T>& items2) const {
    std::vector<T> out;
    out.reserve(items1.size() + items2.size());
    std::size_t i = 0, j = 0;
    while (i < items1.size() && j < items2.size()) {
      if (_sortBlock(items1[i], items2[j]) < 0) {
        out.push_back(items1[i++]);
      } else {
        out.push_back(items2[j++]);
      }
    }
    out.insert(out.end(), items1.begin() + i, items1.end());
    out.insert(out.end(), items2.begin() + j, items2.end());
    return out;
  }

  // Puts `object` and then `object2` into their places in a sorted list.
  void combineItemsWithObject(std::vector<T>& items, const T& object, const T& object2) const {
    for (const T* each : {&object, &object2}) {
      std::size_t at = 0;
      while (at < items.size() && _sortBlock(items[at], *each) < 0) ++at;
      items.insert(items.begin() + at, *each);
    }
  }

  static void exchangeValue(std::vector<T>& items, std::size_t i, std::size_t j) {
    std::swap(items[i], items[j]);
  }

  std::vector<T> getResult() {
    if (_items.empty()) return {};
    _result = sortedItems(0, _items.size() - 1);
    return _result;
  }

 private:
  static int caseInsensitiveCompare(const T& a, const T& b) {
    T la = toLower(a), lb = toLower(b);
    return la < lb ? -1 : (lb < la ? 1 : 0);
  }

  void mergeRange6(std::size_t start, std::size_t end) {
    if (start >= end) return;
    std::size_t mid = start + (end - start) / 2;
    mergeRange6(start, mid);
    mergeRange6(mid + 1, end);
    std::size_t i = start, j = mid + 1, k = start;
    while (i <= mid && j <= end) {
      _tempResult[k++] =
          caseInsensitiveCompare(_result[i], _result[j]) < 0 ? _result[i++] : _result[j++];
    }
    while (i <= mid) _tempResult[k++] = _result[i++];
    while (j <= end) _tempResult[k++] = _result[j++];
    for (k = start; k <= end; ++k) _result[k] = _tempResult[k];
  }

  SortBlock<T> _sortBlock;
  std::vector<T> _items;
  std::vector<T> _result;
  std::vector<T> _tempResult;
};

}  // namespace harbor
