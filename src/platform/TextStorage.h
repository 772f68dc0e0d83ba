#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace harbor {

// A location and a length in UTF-16 units.
struct TextRange {
  std::size_t location = 0;
  std::size_t length = 0;

  std::size_t end() const { return location + length; }
  bool contains(std::size_t offset) const { return offset >= location && offset < end(); }
  bool operator==(const TextRange&) const = default;
  auto operator<=>(const TextRange&) const = default;
  static TextRange unionRange(const TextRange& a, const TextRange& b);
};

// "{location, length}", the printed form of a range.
std::string toString(const TextRange& r);

struct Color {
  std::uint8_t red = 0, green = 0, blue = 0;
  static Color rgb(std::uint8_t r, std::uint8_t g, std::uint8_t b) { return Color{r, g, b}; }
  std::string hex() const;  // "#RRGGBB"
  bool operator==(const Color&) const = default;
};

struct Font {
  std::string name;
  double size = 16;
  bool operator==(const Font&) const = default;
};

// The attributes of a run: a font and a foreground colour, either absent.
struct TextAttributes {
  std::optional<Font> font;
  std::optional<Color> foregroundColor;
  bool operator==(const TextAttributes&) const = default;
};

// Styled text: a UTF-16 string with runs of attributes. Adjacent runs with
// equal attributes are one run, so enumeration reports maximal runs. Every
// attribute write is counted, so callers can see that unchanged runs cost
// nothing.
class TextStorage {
 public:
  enum class Attribute { Font, ForegroundColor };

  TextStorage() = default;
  explicit TextStorage(std::u16string text);

  const std::u16string& string() const { return *text_; }
  // The text as a shared, immutable snapshot: cheap to keep while scanning.
  std::shared_ptr<const std::u16string> stringSnapshot() const { return text_; }
  std::size_t length() const { return text_->size(); }

  // Calls `block(value, range, stop)` for each run of `attribute` within
  // `range` (clipped to the text); a run without the attribute has no value.
  using ColorBlock = std::function<void(const std::optional<Color>&, TextRange, bool& stop)>;
  using FontBlock = std::function<void(const std::optional<Font>&, TextRange, bool& stop)>;
  void enumerateForegroundColor(TextRange range, bool reverse, const ColorBlock& block) const;
  void enumerateFont(TextRange range, bool reverse, const FontBlock& block) const;
  // Colour runs as above, with the run's attributes when the whole run has
  // one set of them (nullptr when they vary inside it).
  using ColorRunBlock = std::function<void(const std::optional<Color>&, TextRange,
                                           const TextAttributes* uniform, bool& stop)>;
  void enumerateForegroundColorRuns(TextRange range, bool reverse,
                                    const ColorRunBlock& block) const;

  // Replaces every attribute of the range.
  void setAttributes(const TextAttributes& attributes, TextRange range);
  void addFont(const Font& font, TextRange range);
  void addForegroundColor(const Color& color, TextRange range);
  void removeForegroundColor(TextRange range);
  TextAttributes attributesAt(std::size_t offset) const;

  // Replaces characters; inserted text takes the attributes of the text
  // before it. Observers hear of every edit, in the order they were added.
  void replaceCharacters(TextRange range, std::u16string_view replacement);
  using EditObserver = std::function<void(TextRange editedRange, std::ptrdiff_t changeInLength)>;
  // Several parts follow one text (line numbers, the view, the caret); each
  // adds itself and removes itself with the token it got.
  std::size_t addEditObserver(EditObserver observer);
  void removeEditObserver(std::size_t token);

  // Views that mirror the runs hear which span an attribute write touched,
  // so they restyle that span only.
  using AttributeObserver = std::function<void(TextRange range, Attribute attribute)>;
  std::size_t addAttributeObserver(AttributeObserver observer);
  void removeAttributeObserver(std::size_t token);

  std::uint64_t attributeWriteCount() const { return writes_; }
  std::size_t runCount() const { return runs_.size(); }

 private:
  // A run's start. An edit moves every later start by the same amount,
  // which keeps their order: shifting them in place is safe and spares
  // rebuilding the map on each keystroke.
  struct RunStart {
    mutable std::size_t at;
    RunStart(std::size_t offset) : at(offset) {}  // NOLINT: offsets convert freely
    operator std::size_t() const { return at; }
  };
  // Run starts to attributes; the first run starts at 0 and each runs to the
  // next start (the last to the end of the text).
  using Runs = std::map<RunStart, TextAttributes, std::less<>>;

  Runs::iterator splitAt(std::size_t offset);
  void coalesceAround(std::size_t from, std::size_t to);
  template <class F>
  void modify(TextRange range, F&& change);
  void notifyAttribute(TextRange range, Attribute attribute);
  template <class Value, class Get, class Block>
  void enumerate(TextRange range, bool reverse, Get get, const Block& block) const;
  template <class Value>
  struct Group {
    std::optional<Value> value;
    TextRange range;
    const TextAttributes* uniform;
  };

  // Made non-const, so an edit may change it in place when nobody shares it.
  std::shared_ptr<const std::u16string> text_ = std::make_shared<std::u16string>();
  Runs runs_{{0, TextAttributes{}}};
  std::uint64_t writes_ = 0;
  std::vector<std::pair<std::size_t, EditObserver>> observers_;
  std::vector<std::pair<std::size_t, AttributeObserver>> attributeObservers_;
  std::size_t nextObserver_ = 1;
};

}  // namespace harbor
