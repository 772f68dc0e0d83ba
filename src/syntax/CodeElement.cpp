#include <cstdio>

#include "platform/Unicode.h"
#include "syntax/CodeRangeItem.h"

namespace harbor {
namespace {

std::u16string_view slice(std::u16string_view text, TextRange r) {
  if (r.location >= text.size()) return {};
  return text.substr(r.location, r.length);
}

bool sameIgnoringCase(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) {
    // Case mapping can change lengths only outside ASCII.
    return toLower(a) == toLower(b);
  }
  for (std::size_t i = 0; i < a.size(); ++i) {
    char16_t x = a[i], y = b[i];
    if (x >= u'A' && x <= u'Z') x = static_cast<char16_t>(x + 32);
    if (y >= u'A' && y <= u'Z') y = static_cast<char16_t>(y + 32);
    if (x != y) return x < 128 && y < 128 ? false : toLower(a) == toLower(b);
  }
  return true;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Percent-decoding over UTF-8 bytes; a malformed escape stays as written.
std::u16string urlDecode(std::u16string_view value) {
  if (value.find(u'%') == std::u16string_view::npos) return std::u16string(value);
  const std::string bytes = toUtf8(value);
  std::string out;
  out.reserve(bytes.size());
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (bytes[i] == '%' && i + 2 < bytes.size()) {
      const int hi = hexValue(bytes[i + 1]);
      const int lo = hexValue(bytes[i + 2]);
      if (hi >= 0 && lo >= 0) {
        out += static_cast<char>(hi * 16 + lo);
        i += 2;
        continue;
      }
    }
    out += bytes[i];
  }
  return toUtf16(out);
}

}  // namespace

std::shared_ptr<CodeElement> CodeElement::instanceWithRange(TextRange r, int type) {
  auto e = std::make_shared<CodeElement>();
  e->range = r;
  e->fullRange = r;
  e->type = type;
  return e;
}

void CodeElement::addChild(std::shared_ptr<CodeElement> child) {
  if (!child) return;
  child->parent = this;
  childItems.push_back(std::move(child));
}

void CodeElement::removeLastObject() {
  if (!childItems.empty()) childItems.pop_back();
}

void CodeElement::setValue(std::shared_ptr<CodeElement> v) {
  if (v) v->parent = this;
  value_ = std::move(v);
}

std::string CodeElement::description() const {
  char address[32];
  std::snprintf(address, sizeof address, "%p", static_cast<const void*>(this));
  return "<CodeElement:" + std::string(address) + ">Range:" + toString(range) +
         ",FullRange:" + toString(fullRange);
}

std::optional<std::u16string> CodeElement::findValueWithAttributeName(
    std::u16string_view name, std::u16string_view text) const {
  for (const auto& attr : childItems) {
    if (!sameIgnoringCase(slice(text, attr->range), name)) continue;
    if (!attr->value_) return std::nullopt;
    return std::u16string(slice(text, attr->value_->range));
  }
  return std::nullopt;
}

bool CodeElement::findRangeWithAttriNameAndValue(std::u16string_view name,
                                                 std::u16string_view value,
                                                 std::u16string_view text) const {
  for (const auto& attr : childItems) {
    if (attr->findRangeWithAttriNameAndValueInAttribute(name, value, text)) return true;
  }
  return false;
}

bool CodeElement::findRangeWithAttriNameAndValueInAttribute(std::u16string_view name,
                                                            std::u16string_view value,
                                                            std::u16string_view text) const {
  if (!value_ || !sameIgnoringCase(slice(text, range), name)) return false;
  std::u16string_view v = slice(text, value_->range);
  if (v.size() >= 3 && (v.front() == u'"' || v.front() == u'\'') && v.back() == v.front()) {
    v = v.substr(1, v.size() - 2);
  }
  return sameIgnoringCase(urlDecode(v), value);
}

std::optional<std::u16string> CodeElement::findValueWithAttributeRange(
    std::size_t offset, std::u16string_view text) const {
  for (const auto& attr : childItems) {
    const auto& v = attr->value_;
    // The end counts: the caret sits there while a value is typed.
    if (v && offset >= v->range.location && offset <= v->range.end()) {
      return std::u16string(slice(text, attr->range));
    }
  }
  return std::nullopt;
}

const CodeElement* CodeElement::findElementByRange(std::size_t offset) const {
  auto holds = [offset](TextRange r) { return offset >= r.location && offset <= r.end(); };
  if (holds(range)) return this;
  for (const auto& attr : childItems) {
    if (holds(attr->range)) return attr.get();
    if (attr->value_ && holds(attr->value_->range)) return attr->value_.get();
  }
  return nullptr;
}

}  // namespace harbor
