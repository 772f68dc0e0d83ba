#include "editor/EditorKeyboardItems.h"

#include <algorithm>
#include <initializer_list>

#include "filemanager/FileUtil.h"
#include "platform/Unicode.h"
#include "syntax/CodeFactory.h"

namespace harbor {
namespace {

// Stand-ins in the tables below for the keys whose title is not their text.
constexpr const char* kDquote = "dquote";
constexpr const char* kTab = "tab";
constexpr const char* kUndo = "↰";
constexpr const char* kRedo = "↱";

enum Family { kPlain, kMarkup, kPhp };

EditCommonButton makeKey(const std::string& name, Family family) {
  EditCommonButton key;
  key._clickAction = "clickBarItem:";
  if (name == kDquote) {
    key._textLabel = "\"";
    key.stringTag = u"\"";
  } else if (name == kTab) {
    key._textLabel = "tab";
    key.stringTag = u"\t";
    key.setLongPress("clickBarItem2CharFocusEnd:");
  } else if (name == kUndo) {
    key._textLabel = name;
    key._clickAction = "undoAction:";
  } else if (name == kRedo) {
    key._textLabel = name;
    key._clickAction = "redoAction:";
  } else {
    key._textLabel = name;
    key.stringTag = toUtf16(name);
  }
  if (name == "←") {
    key._clickAction = "rewindCursor:";
    key.stringTag.clear();
    key.setLongPress("rewindWordCursor:");
  } else if (name == "→") {
    key._clickAction = "forwardCursor:";
    key.stringTag.clear();
    key.setLongPress("forwardWordCursor:");
  }
  // Keys made with a second text tap their own text and long-press both.
  static const std::pair<const char*, const char16_t*> kPairs[] = {
      {"(", u")"}, {"[", u"]"}, {"{", u"\n}"}, {"<?php", u"\n?>"}};
  for (const auto& [open, close] : kPairs) {
    if (name == open) {
      key.stringTag2 = close;
      key.setLongPress("clickBarLongClickBackTag2:");
    }
  }
  if (family != kPlain) {
    if (name == "<") key.setLongPress("clickHtmlTags:");
    if (name == ">") key.setLongPress("clickLongGreatChar:");
  }
  if (family == kMarkup) {
    if (name == kDquote || name == "'") {
      key._clickAction = "clickBarItem2Char:";
      key.setLongPress("clickBarItem:");
    }
    if (name == "=") key.setLongPress("clickBarItem2CharZeroOffset:");
  }
  return key;
}

std::vector<EditCommonButton> makeSet(std::initializer_list<const char*> names, Family family) {
  std::vector<EditCommonButton> keys;
  keys.reserve(names.size());
  for (const char* name : names) keys.push_back(makeKey(name, family));
  return keys;
}

bool isOneOf(const std::string& type, std::initializer_list<const char*> names) {
  return std::find(names.begin(), names.end(), type) != names.end();
}

}  // namespace

std::vector<EditCommonButton> EditorKeyboardItems::getInputViewItemsByType(
    const std::string& type, const std::string& fileName) {
  if (!CodeFactory::getConfigItem(FileUtil::getFileExtension(fileName), fileName)) {
    return loadToolbarItems();
  }
  if (isOneOf(type, {"js", "json"})) return loadJsToolbarItems();
  if (type == "phpcore") return loadPhpToolbarItems();
  if (isOneOf(type, {"php", "asp", "aspx", "jsp", "ascx", "master", "htm", "html", "shtml", "htc",
                     "shtm", "stm"})) {
    return loadHtmlToolbarItems();
  }
  if (isOneOf(type, {"vb", "vbs", "bas", "vbp", "frm", "vsh"})) return loadVbsToolbarItems();
  if (isOneOf(type, {"css", "scss"})) return loadCssToolbarItems();
  if (isOneOf(type, {"xml", "xib", "xslt", "xsl"})) return loadXmlToolbarItems();
  return loadToolbarItems();
}

std::vector<EditCommonButton> EditorKeyboardItems::loadHtmlToolbarItems() {
  return makeSet({"←",  "→",   "<",   ">", kDquote, "=", "/", "'", "%", "<!--", "-->",
                  kTab, kUndo, kRedo, ".", "/",     "*", "+", "-", "?", "$",    "#"},
                 kMarkup);
}

std::vector<EditCommonButton> EditorKeyboardItems::loadJsToolbarItems() {
  return makeSet({"←",  "→",   "(",   ")", kDquote, "=", "{", "}", "$", ":", "'",  ",",  ".", ";",
                  kTab, kUndo, kRedo, "_", "/",     "*", "+", "-", "[", "]", "/*", "*/", "//"},
                 kPlain);
}

std::vector<EditCommonButton> EditorKeyboardItems::loadPhpToolbarItems() {
  return makeSet({"←",  "→",  "(",  ")",  kDquote, "=",  "{", "}", "$",  ".",   "'",
                  ",",  ":",  ";",  "[",  "]",     "_",  "/", "*", "+",  "-",   "%",
                  "\\", "/*", "*/", "//", "<?php", "?>", "<", ">", kTab, kUndo, kRedo},
                 kPhp);
}

std::vector<EditCommonButton> EditorKeyboardItems::loadXmlToolbarItems() {
  return makeSet({"←", "→", "<", ">", kDquote, "=", "/", "'", kTab, kUndo, kRedo, ".", "-", "$",
                  "#", "<!--", "-->"},
                 kMarkup);
}

std::vector<EditCommonButton> EditorKeyboardItems::loadToolbarItems() {
  return makeSet(
      {"←", "→", "(", ")", kDquote, "=", "{",  "}",   "$",   ":",  "'",  ",",  ".",    ";",   "/",
       "*", "+", "-", "#", "[",     "]", kTab, kUndo, kRedo, "/*", "*/", "//", "<!--", "-->", "@"},
      kPlain);
}

std::vector<EditCommonButton> EditorKeyboardItems::loadVbsToolbarItems() {
  return makeSet({"←", "→", "(", ")", kDquote, "=", ".", "'", ",", "\\", "/", "*", "+", "-"},
                 kPlain);
}

std::vector<EditCommonButton> EditorKeyboardItems::loadCssToolbarItems() {
  return makeSet({"←",     "→", "{", "}",  ".",  ":", ";", "#", "-", "@", "%",
                  kDquote, ",", "'", "/*", "*/", "$", "!", "=", "(", ")"},
                 kPlain);
}

}  // namespace harbor
