#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/Error.h"

namespace harbor {

// One replacement: at `location`, replace `length` code units by
// `replaceString`.
struct UnDoManagerItem {
  std::uint64_t location = 0;
  std::uint64_t length = 0;
  std::u16string replaceString;
  std::int32_t dataType = 0;

  std::string description() const;
  bool operator==(const UnDoManagerItem&) const = default;
};

class UStack;
// An entry of the journal: one item or a group of items.
using UStackEntry = std::variant<UnDoManagerItem, std::shared_ptr<UStack>>;

class UStack {
 public:
  static std::shared_ptr<UStack> instance() { return std::make_shared<UStack>(); }
  void push(UStackEntry entry) { _items.push_back(std::move(entry)); }
  // Nothing when empty.
  std::optional<UStackEntry> pop();
  const UStackEntry* peek() const { return _items.empty() ? nullptr : &_items.back(); }
  std::size_t size() const { return _items.size(); }
  bool isEmpty() const { return _items.empty(); }
  void clear() { _items.clear(); }
  // Items from the top down.
  std::string description() const;
  // Bottom first, as archived.
  const std::vector<UStackEntry>& items() const { return _items; }

 private:
  std::vector<UStackEntry> _items;
};

// A self-contained undo and redo history over a plain string. Each recorded
// item is the inverse of an edit already applied to `sourceString`.
class UnDoManager {
 public:
  static std::shared_ptr<UnDoManager> instanceWithString(std::u16string text);
  explicit UnDoManager(std::u16string text = {});

  // Applies the edit and records its inverse; false (and nothing done) when
  // the range lies outside the text.
  bool addUndoItem(std::uint64_t location, std::uint64_t length, const std::u16string& replace);
  void addUndoItem(UnDoManagerItem item);
  void addRedoItem(UStackEntry entry);

  // The core step: replaces the range in sourceString and answers the
  // inverse item, or nothing when the range is out of bounds.
  std::optional<UnDoManagerItem> getUnDoManagerItem(std::uint64_t location, std::uint64_t length,
                                                    const std::u16string& replace);
  std::optional<UnDoManagerItem> getUnDoManagerItem(const UnDoManagerItem& item);
  std::optional<UnDoManagerItem> getReDoManagerItem(const UnDoManagerItem& item);

  bool undo();
  bool redo();
  bool isCanUndo() const;
  bool isCanRedo() const { return !redoStack->isEmpty(); }
  std::size_t undoStackSize() const;
  std::size_t redoStackSize() const { return redoStack->size(); }

  void startGrouping();
  void stopGrouping();
  bool isGrouping() const { return _isGrouping; }

  // A group turned into the opposite group, applying each entry.
  std::shared_ptr<UStack> getReDoStackFromStack(UStack& stack);
  std::shared_ptr<UStack> getStackFromStack(UStack& stack);

  // Kept for the interface: the journal is never written to disk by itself.
  void writeToFile(const std::string&) {}

  const std::u16string& getSourceString() const { return sourceString; }
  // Where the caret goes after the last undo or redo: the end of the last
  // item applied.
  std::uint64_t lastAppliedEnd() const { return lastAppliedEnd_; }

  // The archive form: {"sourceString", "undoStack": {"items"}, "redoStack"}.
  nlohmann::ordered_json archive() const;
  // Refuses archives whose items do not fit the text they would apply to.
  static std::shared_ptr<UnDoManager> unarchive(const nlohmann::json& archive, Error* error);

 private:
  std::u16string sourceString;
  std::shared_ptr<UStack> undoStack = UStack::instance();
  std::shared_ptr<UStack> redoStack = UStack::instance();
  bool _isGrouping = false;
  std::shared_ptr<UStack> tempGroupStack;
  mutable std::mutex groupLock_;
  std::uint64_t lastAppliedEnd_ = 0;
};

}  // namespace harbor
