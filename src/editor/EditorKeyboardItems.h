#pragma once

#include <string>
#include <vector>

namespace harbor {

// One key of the bar above the keyboard: what a tap and a long press run,
// by operation name, and the texts they enter.
struct EditCommonButton {
  std::string _clickAction;
  std::string _doubleClick;
  std::string _longPress;
  double delay_time = 0;
  std::string _textLabel;
  std::u16string stringTag;
  std::u16string stringTag2;

  // One long press per key: a second one is ignored.
  void setLongPress(const std::string& action) {
    if (_longPress.empty()) _longPress = action;
  }
  void setDoubleClick(const std::string& action) {
    _doubleClick = action;
    delay_time = 0.12;
  }
};

// The keys for a file type.
class EditorKeyboardItems {
 public:
  EditorKeyboardItems() = delete;

  // `type` is the parser's format type; a file the registry does not know
  // gets the default set.
  static std::vector<EditCommonButton> getInputViewItemsByType(const std::string& type,
                                                               const std::string& fileName);
  static std::vector<EditCommonButton> loadToolbarItems();
  static std::vector<EditCommonButton> loadHtmlToolbarItems();
  static std::vector<EditCommonButton> loadJsToolbarItems();
  static std::vector<EditCommonButton> loadPhpToolbarItems();
  static std::vector<EditCommonButton> loadXmlToolbarItems();
  static std::vector<EditCommonButton> loadVbsToolbarItems();
  static std::vector<EditCommonButton> loadCssToolbarItems();
};

}  // namespace harbor
