#include "editor/UnDoManager.h"

#include <fmt/format.h>

#include "platform/Log.h"
#include "platform/Unicode.h"

namespace harbor {

std::string UnDoManagerItem::description() const {
  return fmt::format("location={},length={},replaceString={}", location, length,
                     toUtf8(replaceString));
}

std::optional<UStackEntry> UStack::pop() {
  if (_items.empty()) return std::nullopt;
  UStackEntry top = std::move(_items.back());
  _items.pop_back();
  return top;
}

std::string UStack::description() const {
  std::string out = "(";
  for (auto it = _items.rbegin(); it != _items.rend(); ++it) {
    if (it != _items.rbegin()) out += ",";
    if (const auto* item = std::get_if<UnDoManagerItem>(&*it)) {
      out += item->description();
    } else {
      out += std::get<std::shared_ptr<UStack>>(*it)->description();
    }
  }
  return out + ")";
}

std::shared_ptr<UnDoManager> UnDoManager::instanceWithString(std::u16string text) {
  return std::make_shared<UnDoManager>(std::move(text));
}

UnDoManager::UnDoManager(std::u16string text) : sourceString(std::move(text)) {}

std::optional<UnDoManagerItem> UnDoManager::getUnDoManagerItem(std::uint64_t location,
                                                               std::uint64_t length,
                                                               const std::u16string& replace) {
  if (location > sourceString.size() || length > sourceString.size() - location) {
    return std::nullopt;
  }
  UnDoManagerItem inverse;
  inverse.location = location;
  inverse.length = replace.size();
  inverse.replaceString = sourceString.substr(location, length);
  sourceString.replace(location, length, replace);
  lastAppliedEnd_ = location + replace.size();
  return inverse;
}

std::optional<UnDoManagerItem> UnDoManager::getUnDoManagerItem(const UnDoManagerItem& item) {
  auto inverse = getUnDoManagerItem(item.location, item.length, item.replaceString);
  if (inverse) inverse->dataType = item.dataType;
  return inverse;
}

std::optional<UnDoManagerItem> UnDoManager::getReDoManagerItem(const UnDoManagerItem& item) {
  return getUnDoManagerItem(item);
}

bool UnDoManager::addUndoItem(std::uint64_t location, std::uint64_t length,
                              const std::u16string& replace) {
  auto inverse = getUnDoManagerItem(location, length, replace);
  if (!inverse) return false;
  addUndoItem(std::move(*inverse));
  return true;
}

void UnDoManager::addUndoItem(UnDoManagerItem item) {
  if (!redoStack->isEmpty()) redoStack->clear();
  if (_isGrouping && tempGroupStack) {
    tempGroupStack->push(std::move(item));
  } else {
    undoStack->push(std::move(item));
  }
}

void UnDoManager::addRedoItem(UStackEntry entry) {
  redoStack->push(std::move(entry));
}

void UnDoManager::startGrouping() {
  if (_isGrouping) return;
  std::lock_guard lock(groupLock_);
  if (_isGrouping) return;
  _isGrouping = true;
  tempGroupStack = UStack::instance();
}

void UnDoManager::stopGrouping() {
  if (!_isGrouping) return;
  std::lock_guard lock(groupLock_);
  if (!_isGrouping) return;
  _isGrouping = false;
  if (tempGroupStack && !tempGroupStack->isEmpty()) undoStack->push(tempGroupStack);
  tempGroupStack.reset();
}

bool UnDoManager::isCanUndo() const {
  return !undoStack->isEmpty() || (tempGroupStack && !tempGroupStack->isEmpty());
}

std::size_t UnDoManager::undoStackSize() const {
  return undoStack->size() + (tempGroupStack ? tempGroupStack->size() : 0);
}

namespace {

// Moves a group's entries out, most recent first, applying each with `step`
// into a new group whose top is the entry to apply first next time.
template <typename Step>
std::shared_ptr<UStack> invertGroup(UStack& stack, Step step) {
  auto out = UStack::instance();
  while (auto entry = stack.pop()) {
    if (const auto* item = std::get_if<UnDoManagerItem>(&*entry)) {
      if (auto inverse = step(*item)) out->push(std::move(*inverse));
    } else if (const auto& group = std::get<std::shared_ptr<UStack>>(*entry)) {
      auto inner = invertGroup(*group, step);
      if (!inner->isEmpty()) out->push(inner);
    }
  }
  return out;
}

}  // namespace

std::shared_ptr<UStack> UnDoManager::getReDoStackFromStack(UStack& stack) {
  return invertGroup(stack,
                     [this](const UnDoManagerItem& item) { return getReDoManagerItem(item); });
}

std::shared_ptr<UStack> UnDoManager::getStackFromStack(UStack& stack) {
  return invertGroup(stack,
                     [this](const UnDoManagerItem& item) { return getUnDoManagerItem(item); });
}

bool UnDoManager::undo() {
  stopGrouping();
  if (!isCanUndo()) return true;
  std::optional<UStackEntry> top = undoStack->pop();
  UStack single;
  if (auto* item = std::get_if<UnDoManagerItem>(&*top)) {
    single.push(std::move(*item));
    auto inverse = getReDoStackFromStack(single);
    if (!inverse->isEmpty()) redoStack->push(inverse->size() == 1 ? *inverse->pop() : inverse);
  } else if (auto group = std::get<std::shared_ptr<UStack>>(*top)) {
    auto inverse = getReDoStackFromStack(*group);
    if (!inverse->isEmpty()) redoStack->push(inverse);
  }
  return true;
}

bool UnDoManager::redo() {
  stopGrouping();
  if (!isCanRedo()) return true;
  std::optional<UStackEntry> top = redoStack->pop();
  UStack single;
  if (auto* item = std::get_if<UnDoManagerItem>(&*top)) {
    single.push(std::move(*item));
    auto inverse = getStackFromStack(single);
    if (!inverse->isEmpty()) undoStack->push(inverse->size() == 1 ? *inverse->pop() : inverse);
  } else if (auto group = std::get<std::shared_ptr<UStack>>(*top)) {
    auto inverse = getStackFromStack(*group);
    if (!inverse->isEmpty()) undoStack->push(inverse);
  }
  return true;
}

namespace {

nlohmann::ordered_json archiveStack(const UStack& stack) {
  nlohmann::ordered_json items = nlohmann::ordered_json::array();
  for (const UStackEntry& entry : stack.items()) {
    if (const auto* item = std::get_if<UnDoManagerItem>(&entry)) {
      items.push_back({{"location", item->location},
                       {"length", item->length},
                       {"replaceString", toUtf8(item->replaceString)},
                       {"dataType", item->dataType}});
    } else {
      items.push_back(archiveStack(*std::get<std::shared_ptr<UStack>>(entry)));
    }
  }
  return {{"items", items}};
}

bool readStack(const nlohmann::json& j, UStack& out, int depth, std::string& why) {
  if (depth > 64) return (why = "groups nested too deep", false);
  if (!j.is_object() || !j.contains("items") || !j["items"].is_array()) {
    return (why = "a stack without an \"items\" list", false);
  }
  for (const auto& entry : j["items"]) {
    if (entry.is_object() && entry.contains("items")) {
      auto group = UStack::instance();
      if (!readStack(entry, *group, depth + 1, why)) return false;
      // An empty group stands for no edit; keeping it would make an undo that does nothing.
      if (!group->isEmpty()) out.push(group);
      continue;
    }
    if (!entry.is_object() || !entry.contains("location") || !entry.contains("length") ||
        !entry["location"].is_number_unsigned() || !entry["length"].is_number_unsigned()) {
      return (why = "an item without a location and length", false);
    }
    UnDoManagerItem item;
    item.location = entry["location"].get<std::uint64_t>();
    item.length = entry["length"].get<std::uint64_t>();
    if (entry.contains("replaceString")) {
      if (!entry["replaceString"].is_string()) return (why = "replaceString is not text", false);
      item.replaceString = toUtf16(entry["replaceString"].get<std::string>());
    }
    if (entry.contains("dataType")) {
      if (!entry["dataType"].is_number_integer()) return (why = "dataType is not a number", false);
      item.dataType = static_cast<std::int32_t>(entry["dataType"].get<long long>());
    }
    out.push(std::move(item));
  }
  return true;
}

// Replays a copy of the stack on a copy of the text: every item must fit.
bool fits(const UStack& stack, std::u16string text) {
  UnDoManager probe(std::move(text));
  UStack copy;
  for (const UStackEntry& entry : stack.items()) copy.push(entry);
  bool ok = true;
  std::function<void(UStack&)> walk = [&](UStack& s) {
    while (ok) {
      auto entry = s.pop();
      if (!entry) return;
      if (const auto* item = std::get_if<UnDoManagerItem>(&*entry)) {
        ok = probe.getUnDoManagerItem(*item).has_value();
      } else {
        UStack inner;
        for (const UStackEntry& e : std::get<std::shared_ptr<UStack>>(*entry)->items())
          inner.push(e);
        walk(inner);
      }
    }
  };
  walk(copy);
  return ok;
}

}  // namespace

nlohmann::ordered_json UnDoManager::archive() const {
  return {{"sourceString", toUtf8(sourceString)},
          {"undoStack", archiveStack(*undoStack)},
          {"redoStack", archiveStack(*redoStack)}};
}

std::shared_ptr<UnDoManager> UnDoManager::unarchive(const nlohmann::json& archive, Error* error) {
  auto refuse = [&](const std::string& why) -> std::shared_ptr<UnDoManager> {
    logMessage("UnDoManager", "unarchive", "refused: " + why);
    if (error) *error = Error{"UnDoManager", 1, "not a journal archive: " + why};
    return nullptr;
  };
  if (!archive.is_object() || !archive.contains("sourceString") ||
      !archive["sourceString"].is_string()) {
    return refuse("no \"sourceString\"");
  }
  auto manager = instanceWithString(toUtf16(archive["sourceString"].get<std::string>()));
  std::string why;
  for (const char* key : {"undoStack", "redoStack"}) {
    if (!archive.contains(key)) continue;
    UStack& stack = *(key[0] == 'u' ? manager->undoStack : manager->redoStack);
    if (!readStack(archive[key], stack, 0, why)) return refuse(std::string(key) + ": " + why);
    if (!fits(stack, manager->sourceString)) {
      return refuse(std::string(key) + ": an item lies outside the text");
    }
  }
  return manager;
}

}  // namespace harbor
