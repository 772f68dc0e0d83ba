#include "platform/TextStorage.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace harbor {

TextRange TextRange::unionRange(const TextRange& a, const TextRange& b) {
  std::size_t start = std::min(a.location, b.location);
  return TextRange{start, std::max(a.end(), b.end()) - start};
}

std::string toString(const TextRange& r) {
  return "{" + std::to_string(r.location) + ", " + std::to_string(r.length) + "}";
}

std::string Color::hex() const {
  char buf[8];
  std::snprintf(buf, sizeof buf, "#%02X%02X%02X", red, green, blue);
  return buf;
}

TextStorage::TextStorage(std::u16string text)
    : text_(std::make_shared<std::u16string>(std::move(text))) {}

TextStorage::Runs::iterator TextStorage::splitAt(std::size_t offset) {
  if (offset >= length()) return runs_.end();
  auto it = runs_.upper_bound(offset);
  --it;  // the run holding offset; runs_ always has a run at 0
  if (it->first == offset) return it;
  return runs_.emplace_hint(std::next(it), offset, it->second);
}

void TextStorage::coalesceAround(std::size_t from, std::size_t to) {
  auto it = runs_.lower_bound(from);
  if (it != runs_.begin()) --it;
  while (it != runs_.end()) {
    auto next = std::next(it);
    if (next == runs_.end() || next->first > to) break;
    if (next->second == it->second) {
      runs_.erase(next);
    } else {
      it = next;
    }
  }
}

template <class F>
void TextStorage::modify(TextRange range, F&& change) {
  const std::size_t end = std::min(range.end(), length());
  if (range.location >= end) return;
  ++writes_;
  auto first = splitAt(range.location);
  splitAt(end);
  for (auto it = first; it != runs_.end() && it->first < end; ++it) change(it->second);
  coalesceAround(range.location, end);
}

void TextStorage::setAttributes(const TextAttributes& attributes, TextRange range) {
  modify(range, [&](TextAttributes& a) { a = attributes; });
  notifyAttribute(range, Attribute::Font);
  notifyAttribute(range, Attribute::ForegroundColor);
}

void TextStorage::addFont(const Font& font, TextRange range) {
  modify(range, [&](TextAttributes& a) { a.font = font; });
  notifyAttribute(range, Attribute::Font);
}

void TextStorage::addForegroundColor(const Color& color, TextRange range) {
  modify(range, [&](TextAttributes& a) { a.foregroundColor = color; });
  notifyAttribute(range, Attribute::ForegroundColor);
}

void TextStorage::removeForegroundColor(TextRange range) {
  modify(range, [](TextAttributes& a) { a.foregroundColor.reset(); });
  notifyAttribute(range, Attribute::ForegroundColor);
}

void TextStorage::notifyAttribute(TextRange range, Attribute attribute) {
  const std::size_t end = std::min(range.end(), length());
  if (range.location >= end) return;
  const TextRange clipped{range.location, end - range.location};
  for (const auto& [token, observer] : attributeObservers_) observer(clipped, attribute);
}

std::size_t TextStorage::addAttributeObserver(AttributeObserver observer) {
  const std::size_t token = nextObserver_++;
  attributeObservers_.emplace_back(token, std::move(observer));
  return token;
}

void TextStorage::removeAttributeObserver(std::size_t token) {
  std::erase_if(attributeObservers_, [token](const auto& o) { return o.first == token; });
}

TextAttributes TextStorage::attributesAt(std::size_t offset) const {
  if (offset >= length()) return {};
  auto it = runs_.upper_bound(offset);
  return std::prev(it)->second;
}

template <class Value, class Get, class Block>
void TextStorage::enumerate(TextRange range, bool reverse, Get get, const Block& block) const {
  const std::size_t end = std::min(range.end(), length());
  if (range.location >= end) return;
  // Maximal runs of equal value within the range, in text order.
  std::vector<Group<Value>> groups;
  auto it = std::prev(runs_.upper_bound(range.location));
  for (; it != runs_.end() && it->first < end; ++it) {
    auto next = std::next(it);
    std::size_t s = std::max<std::size_t>(it->first, range.location);
    std::size_t e =
        std::min<std::size_t>(next == runs_.end() ? length() : std::size_t{next->first}, end);
    const std::optional<Value>& v = get(it->second);
    if (!groups.empty() && groups.back().value == v && groups.back().range.end() == s) {
      groups.back().range.length += e - s;
      groups.back().uniform = nullptr;  // runs are coalesced, so a second one differs
    } else {
      groups.push_back({v, TextRange{s, e - s}, &it->second});
    }
  }
  bool stop = false;
  if (reverse) {
    for (auto g = groups.rbegin(); g != groups.rend() && !stop; ++g) {
      block(g->value, g->range, g->uniform, stop);
    }
  } else {
    for (auto g = groups.begin(); g != groups.end() && !stop; ++g) {
      block(g->value, g->range, g->uniform, stop);
    }
  }
}

namespace {
const std::optional<Color>& colorOf(const TextAttributes& a) {
  return a.foregroundColor;
}
const std::optional<Font>& fontOf(const TextAttributes& a) {
  return a.font;
}
}  // namespace

void TextStorage::enumerateForegroundColor(TextRange range, bool reverse,
                                           const ColorBlock& block) const {
  enumerate<Color>(range, reverse, colorOf,
                   [&](const std::optional<Color>& c, TextRange r, const TextAttributes*,
                       bool& stop) { block(c, r, stop); });
}

void TextStorage::enumerateForegroundColorRuns(TextRange range, bool reverse,
                                               const ColorRunBlock& block) const {
  enumerate<Color>(range, reverse, colorOf, block);
}

void TextStorage::enumerateFont(TextRange range, bool reverse, const FontBlock& block) const {
  enumerate<Font>(range, reverse, fontOf,
                  [&](const std::optional<Font>& f, TextRange r, const TextAttributes*,
                      bool& stop) { block(f, r, stop); });
}

void TextStorage::replaceCharacters(TextRange range, std::u16string_view replacement) {
  const std::size_t oldLength = length();
  const std::size_t loc = std::min(range.location, oldLength);
  const std::size_t end = std::min(range.end(), oldLength);
  const std::size_t newEnd = loc + replacement.size();

  // Inserted text continues the run before it; what followed keeps its own.
  std::optional<TextAttributes> after;
  if (end < oldLength) after = attributesAt(end);
  TextAttributes before = loc > 0 ? attributesAt(loc - 1) : after.value_or(TextAttributes{});

  // Nobody else holds this text: edit it in place rather than copying a
  // large document on every keystroke. A snapshot handed out keeps its copy.
  std::u16string text = text_.use_count() == 1 ? std::move(const_cast<std::u16string&>(*text_))
                                               : std::u16string(*text_);
  text.replace(loc, end - loc, replacement);
  // Starts inside the replaced span go; later ones move by the change.
  runs_.erase(runs_.lower_bound(loc), runs_.upper_bound(end));
  const auto shift =
      static_cast<std::ptrdiff_t>(replacement.size()) - static_cast<std::ptrdiff_t>(end - loc);
  if (shift != 0) {
    for (auto it = runs_.upper_bound(loc); it != runs_.end(); ++it) {
      it->first.at = static_cast<std::size_t>(static_cast<std::ptrdiff_t>(it->first.at) + shift);
    }
  }
  if (loc == 0) runs_.insert_or_assign(0, before);
  if (after) runs_.emplace(newEnd, *after);
  // Drop starts beyond the new end.
  runs_.erase(runs_.lower_bound(std::max<std::size_t>(text.size(), 1)), runs_.end());
  text_ = std::make_shared<std::u16string>(std::move(text));
  coalesceAround(0 < loc ? loc - 1 : 0, newEnd + 1);
  const TextRange edited{loc, replacement.size()};
  const auto change =
      static_cast<std::ptrdiff_t>(replacement.size()) - static_cast<std::ptrdiff_t>(end - loc);
  for (const auto& [token, observer] : observers_) observer(edited, change);
}

std::size_t TextStorage::addEditObserver(EditObserver observer) {
  const std::size_t token = nextObserver_++;
  observers_.emplace_back(token, std::move(observer));
  return token;
}

void TextStorage::removeEditObserver(std::size_t token) {
  std::erase_if(observers_, [token](const auto& o) { return o.first == token; });
}

}  // namespace harbor
