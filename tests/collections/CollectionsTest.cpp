#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <random>
#include <string>
#include <thread>

#include "collections/HashTables.h"
#include "collections/SingleLinkedList.h"
#include "collections/Sorts.h"
#include "collections/UBtree.h"
#include "collections/Waiting.h"
#include "platform/MainQueue.h"

namespace harbor {
namespace {

TEST(UBtreeTest, AgreesWithAMapUnderRandomInsertsAndDeletes) {
  UBtree<int, int> tree;
  std::map<int, int> model;
  std::mt19937 rng(7);
  for (int round = 0; round < 4000; ++round) {
    int key = static_cast<int>(rng() % 300);
    if (rng() % 3 == 0) {
      EXPECT_EQ(tree.deleteKey(key), model.erase(key) == 1) << "key " << key;
    } else {
      tree.insert(key, round);
      model[key] = round;
    }
    if (round % 97 == 0) {  // a full comparison now and then keeps the test quick
      for (int k = 0; k < 300; ++k) {
        auto found = tree.get(k);
        auto it = model.find(k);
        ASSERT_EQ(found.has_value(), it != model.end()) << "key " << k << " round " << round;
        if (found) {
          ASSERT_EQ(*found, it->second);
        }
      }
    }
  }
  for (auto& [key, value] : model) EXPECT_TRUE(tree.deleteKey(key));
  EXPECT_EQ(tree.depth(), 0u);
  EXPECT_TRUE(tree.isEmpty());
}

TEST(UBtreeTest, RepeatedKeyKeepsLastValueAndDepthGrowsSlowly) {
  UBtree<std::string, int> tree([](const std::string& a, const std::string& b) {
    return a.compare(b) < 0 ? -1 : (a == b ? 0 : 1);
  });
  EXPECT_EQ(tree.depth(), 0u);
  tree.insert("k", 1);
  tree.insert("k", 2);
  EXPECT_EQ(tree.get("k"), 2);
  EXPECT_EQ(tree.depth(), 1u);
  tree.deleteKey("k");
  EXPECT_EQ(tree.get("k"), std::nullopt);
  EXPECT_EQ(tree.depth(), 0u);

  UBtree<int, int> ascending;
  for (int i = 0; i < 1024; ++i) ascending.insert(i, i);
  // Order 3 splits keep the depth logarithmic even for sorted input.
  EXPECT_LE(ascending.depth(), 11u);
  EXPECT_GE(ascending.depth(), 7u);
}

TEST(HashTablesTest, ReplacedKeyKeepsItsPlaceAndReaddedKeyGoesLast) {
  LinkedHashTable<std::string, int> linked;
  OrderedHashTable<std::string, int> ordered;
  auto exercise = [](auto& table) {
    table.addObject(1, "a");
    table.addObject(2, "b");
    table.addObject(3, "c");
    table.addObject(20, "b");
    EXPECT_EQ(table.objects(), (std::vector<int>{1, 20, 3}));
    table.removeObjectForKey("a");
    table.addObject(10, "a");
    EXPECT_EQ(table.objects(), (std::vector<int>{20, 3, 10}));
    EXPECT_EQ(table.objectForKey("zz"), std::nullopt);
    std::vector<std::string> keys(table.begin(), table.end());
    EXPECT_EQ(keys, (std::vector<std::string>{"b", "c", "a"}));
    table.removeAll();
    EXPECT_TRUE(table.objects().empty());
  };
  exercise(linked);
  exercise(ordered);
}

TEST(HashTablesTest, LinkedAddFromManyThreadsKeepsEachKeyOnce) {
  LinkedHashTable<int, int> table;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&table, t] {
      for (int i = 0; i < 500; ++i) table.addObject(t, i);
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(table.count(), 500u);
  EXPECT_EQ(std::distance(table.begin(), table.end()), 500);
}

TEST(SingleLinkedListTest, InsertAndDeleteAtEveryPosition) {
  using List = SingleLinkedList<int>;
  List list;
  auto node = [](int v) { return std::make_shared<SingleLinkedNode<int>>(v); };
  auto values = [&list] {
    std::vector<int> out;
    for (auto n = list.firstNode(); n; n = n->_next) out.push_back(n->_value);
    return out;
  };
  EXPECT_TRUE(list.isEmpty());
  EXPECT_EQ(list.lastNode(), nullptr);
  auto two = node(2);
  list.insertAfter(two);  // on an empty list the node becomes first
  EXPECT_EQ(list.firstNode(), two);
  list.insertBefore(node(1), nullptr);
  auto four = node(4);
  list.insertAfter(four);
  list.insertBefore(node(3), four);
  list.insertAfter(node(5), four);
  EXPECT_EQ(values(), (std::vector<int>{1, 2, 3, 4, 5}));
  EXPECT_EQ(list.count(), 5u);
  EXPECT_EQ(list.beforeNode(four)->_value, 3);
  EXPECT_EQ(list.beforeNode(list.firstNode()), nullptr);

  list.deleteNode(node(9));  // not in the list
  list.deleteNode(four);
  list.deleteFirstNode();
  list.deleteLastNode();
  EXPECT_EQ(values(), (std::vector<int>{2, 3}));
  list.insertBefore(node(7), node(8));  // a position not in the list changes nothing
  EXPECT_EQ(values(), (std::vector<int>{2, 3}));
  list.clear();
  EXPECT_TRUE(list.isEmpty());
  EXPECT_EQ(list.count(), 0u);
}

TEST(SingleLinkedListTest, LongListIsDestroyedWithoutDeepRecursion) {
  auto list = std::make_unique<SingleLinkedList<int>>();
  auto last = std::make_shared<SingleLinkedNode<int>>(0);
  list->insertAfter(last);
  for (int i = 1; i < 500000; ++i) {
    auto n = std::make_shared<SingleLinkedNode<int>>(i);
    list->insertAfter(n, last);
    last = n;
  }
  last.reset();
  list.reset();
  SUCCEED();
}

int compareInts(const int& a, const int& b) {
  return a < b ? -1 : (a > b ? 1 : 0);
}

TEST(SortsTest, QuickSortsMatchTheStandardSortAtEverySize) {
  std::mt19937 rng(3);
  for (int size = 1; size < 60; ++size) {
    std::vector<int> items(size);
    for (int& v : items) v = static_cast<int>(rng() % 10);  // many repeats
    std::vector<int> expected = items;
    std::sort(expected.begin(), expected.end());
    UQuickSort<int> sort(items, compareInts);
    sort.sortedItems(0, size - 1);
    EXPECT_EQ(sort.sorted(), expected) << "size " << size;
    sort.sortedItems2(0, size - 1);
    EXPECT_EQ(sort.result(), expected) << "size " << size;
  }
}

TEST(SortsTest, MergeSortSortsAndPutsTheRightHalfFirstOnTies) {
  using Pair = std::pair<int, char>;
  std::vector<Pair> items{{1, 'a'}, {0, 'x'}, {1, 'b'}, {1, 'c'}};
  UMergeSort<Pair> sort(items,
                        [](const Pair& a, const Pair& b) { return compareInts(a.first, b.first); });
  auto sorted = sort.getResult();
  ASSERT_EQ(sorted.size(), 4u);
  EXPECT_EQ(sorted[0].second, 'x');
  // The right half [1b, 1c] comes before the left's 1a.
  EXPECT_EQ(sorted[1].second, 'b');
  EXPECT_EQ(sorted[3].second, 'a');

  std::mt19937 rng(5);
  std::vector<int> many(333);
  for (int& v : many) v = static_cast<int>(rng() % 1000);
  UMergeSort<int> ints(many, compareInts);
  auto expected = many;
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(ints.getResult(), expected);
  std::vector<int> list{1, 5, 9};
  ints.combineItemsWithObject(list, 6, 0);
  EXPECT_EQ(list, (std::vector<int>{0, 1, 5, 6, 9}));
}

TEST(SortsTest, CaseInsensitiveVariantIgnoresTheBlock) {
  std::vector<std::u16string> names{u"beta", u"Alpha", u"gamma", u"ALPHA2"};
  UMergeSort<std::u16string> sort(names, [](const auto&, const auto&) { return 0; });
  EXPECT_EQ(sort.sortedItems6(0, 3),
            (std::vector<std::u16string>{u"Alpha", u"ALPHA2", u"beta", u"gamma"}));
}

TEST(WaitingTest, SemaphoreWrapperWaitsForTheTaskAndTimesOut) {
  SemaphoreWrapper done;
  std::thread worker;
  EXPECT_TRUE(done.addTask(
      [&worker](std::shared_ptr<Semaphore> s) { worker = std::thread([s] { s->signal(); }); },
      std::chrono::milliseconds(0)));
  worker.join();
  // Released after the wait: a second wait answers at once.
  EXPECT_FALSE(done.wait(std::chrono::milliseconds(1)));

  SemaphoreWrapper never;
  EXPECT_FALSE(never.addTask([](std::shared_ptr<Semaphore>) {}, std::chrono::milliseconds(20)));
}

TEST(WaitingTest, RunLoopWrapperRunsMainWorkAndHonoursTimeoutAndCancel) {
  MainQueue::shared().adoptCurrentThread();
  std::atomic<bool> flag{false};
  std::thread poster([&] { MainQueue::shared().post([&] { flag = true; }); });
  EXPECT_TRUE(RunLoopWrapper::wait([&] { return flag.load(); }));
  poster.join();

  bool timedOut = false;
  EXPECT_FALSE(RunLoopWrapper::wait([] { return false; }, std::chrono::milliseconds(2),
                                    std::chrono::milliseconds(20), [&] { timedOut = true; }));
  EXPECT_TRUE(timedOut);
  int asked = 0;
  EXPECT_FALSE(RunLoopWrapper::wait([] { return false; }, std::chrono::milliseconds(2),
                                    std::chrono::milliseconds(0), nullptr,
                                    [&] { return ++asked == 3; }));
  EXPECT_EQ(asked, 3);
}

}  // namespace
}  // namespace harbor
