#include "editor/EditorBaseController.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "editor/EditorBak.h"
#include "encoding/DetectorCharacter.h"
#include "encoding/EncodingUtil.h"
#include "encoding/FileBytes.h"
#include "encoding/StringEncodings.h"
#include "filemanager/CommonUtil.h"
#include "filemanager/FilePropertyCopyURLS.h"
#include "filemanager/FileUtil.h"
#include "platform/FileWrite.h"
#include "platform/Log.h"
#include "platform/MainQueue.h"
#include "platform/OperationQueue.h"
#include "platform/Resources.h"
#include "platform/Strings.h"
#include "platform/Unicode.h"
#include "prefs/AppUserDefaultUtils.h"
#include "prefs/PreferenceKeys.h"
#include "syntax/CodeFactory.h"
#include "syntax/CodeFormatParser.h"
#include "syntax/parsers/HtmlParsers.h"

namespace harbor {
namespace fs = std::filesystem;

std::function<bool()> EditorHooks::isQuillpad = [] { return false; };
std::function<std::string()> EditorHooks::browserFolder = [] {
  return FileUtil::documentDirectory();
};

namespace {

constexpr const char* kAutomatic = "Automatic";
// Keystrokes at a caret that make one undo step.
constexpr std::uint64_t kKeystrokesPerStep = 11;

std::string stemOf(const std::string& name) {
  return FileUtil::getFileNameNoExtension(name);
}
std::string extensionOf(const std::string& name) {
  return FileUtil::getFileExtension(name);
}

}  // namespace

std::shared_ptr<EditorBaseController> EditorBaseController::instanceWithPath(
    const std::string& path, IEditorView* view) {
  return std::shared_ptr<EditorBaseController>(new EditorBaseController(path, view));
}

// The parser's callbacks, answered by the screen.
class EditorBaseController::SuggestBridge : public ISuggestDelegate {
 public:
  explicit SuggestBridge(EditorBaseController& editor) : editor_(editor) {}
  void onLoadSuggestItems(const std::vector<std::u16string>& items) override {
    editor_._suggestItems = items;
    editor_._selectedSuggestion = 0;
    if (editor_._view) editor_._view->showSuggestions(items);
  }
  void onReplaceString(const std::u16string& text, std::size_t startOffset, std::size_t endOffset,
                       long focusDiff) override {
    if (endOffset < startOffset || endOffset > editor_.text().size()) return;
    editor_._contentChangeLength = 0;
    editor_.applyChange(TextRange{startOffset, endOffset - startOffset}, text);
    editor_.focusDiff(focusDiff);
  }
  void onInputString(const std::u16string& text, long diff) override {
    editor_.textViewInput(text, diff);
  }
  TextRange onSelectedRange() override { return editor_._selection; }
  void onStartTimer() override { editor_.startTimer(); }

 private:
  EditorBaseController& editor_;
};

EditorBaseController::EditorBaseController(const std::string& path, IEditorView* view)
    : _view(view),
      _filePath(path),
      _fileName(FileUtil::getFileName(path)),
      _suggestBridge(std::make_unique<SuggestBridge>(*this)) {
  // The line numbers follow every edit of the text, whoever makes it.
  _textStorage.addEditObserver([this](TextRange edited, std::ptrdiff_t change) {
    _layoutManager.processEditingForTextStorage(edited.location);
    // The next pass re-colours from the edit rather than the whole text.
    if (_formatParser) _formatParser->noteEdit(edited, change);
  });
}

EditorBaseController::~EditorBaseController() {
  if (_currentThread) _currentThread->cancel();
  stopTimer();
}

// ---- names ---------------------------------------------------------------------------

std::string EditorBaseController::fileNameCommon() const {
  if (!_fileName2.empty()) {
    // A stem without an extension names nothing the editor can save.
    return _fileExtension2.empty() ? std::string() : _fileName2 + "." + _fileExtension2;
  }
  return _filePath.empty() ? std::string() : FileUtil::getFileName(_filePath);
}

std::string EditorBaseController::fileExtension() const {
  return _fileName2.empty() ? extensionOf(FileUtil::getFileName(_filePath)) : _fileExtension2;
}

std::string EditorBaseController::fileNameNoExtension() const {
  return _fileName2.empty() ? stemOf(FileUtil::getFileName(_filePath)) : _fileName2;
}

std::string EditorBaseController::inFileExtension() const {
  return extensionOf(fileNameNoExtension());
}

std::string EditorBaseController::folderPathCommon() const {
  return FileUtil::getFileDirectory(_filePath);
}

std::u16string EditorBaseController::formatType() const {
  return _formatParser ? _formatParser->formatType : std::u16string();
}

// ---- opening -----------------------------------------------------------------------------

void EditorBaseController::viewDidLoad() {
  loadPageInfo();
  _encodingString = kAutomatic;
  double size = 16;
  if (auto it = _openInfo.find(SYSTEM_BOOKMARK_FONT_SIZE); it != _openInfo.end()) {
    if (auto v = it->second.asInteger()) size = static_cast<double>(*v);
  }
  _defaultFont = Font{CodeFormatParser::editorDefaultFont().name, size};
  createFormatParser();
  changeInputAccessoryView();
  if (_isAddFile) {
    std::u16string text;
    fs::path resource = resourceDirectory() / "templates" / ("template." + fileExtension());
    std::error_code ec;
    if (!fileExtension().empty() && fs::is_regular_file(resource, ec)) {
      std::string used;
      if (auto t = DetectorCharacter::detectorWithFilePath(resource.string(), &used)) {
        text.reserve(t->size());
        for (std::size_t i = 0; i < t->size(); ++i) {
          if ((*t)[i] == u'\r' && i + 1 < t->size() && (*t)[i + 1] == u'\n') continue;
          text.push_back((*t)[i]);
        }
      }
    }
    resetText(text);
  } else {
    setEditing(false);
    _loading = true;
    if (_view) _view->setBusy(true);
    std::weak_ptr<EditorBaseController> weak = weak_from_this();
    std::string path = _filePath;
    std::string encoding = _encodingString;
    _currentThread = CancellableThread::startDetached([weak, path, encoding] {
      std::string used;
      std::optional<std::u16string> text = loadData(path, encoding, &used);
      if (isCurrentThreadCancelled()) return;
      // Each opening keeps a copy of the file as it was.
      if (!EditorBak::isInBakDirectory(path)) EditorBak::backupFilePath(path);
      MainQueue::shared().postAndWait([weak, text, used] {
        auto self = weak.lock();
        if (!self || !self->_currentThread || self->_currentThread->isCancelled()) return;
        self->_encodingString = used;
        self->setContent(text.value_or(std::u16string()), text.has_value());
      });
    });
  }
  _contentChangeLength = 0;
  updateTitle();
  if (_isAddFile) setEditing(true);
  _isViewDidLoad = true;
}

void EditorBaseController::viewDidAppear() {
  if (_isHadLoadedPage) return;
  _isHadLoadedPage = true;
  gotoLastPosition();
}

void EditorBaseController::endScreen() {
  stopTimer();
  if (_currentThread) _currentThread->cancel();
  _loading = false;
  _view = nullptr;
}

void EditorBaseController::loadPageInfo() {
  if (_isOnline || _isAddFile) return;
  std::optional<PlistValue::Map> info;
  if (_isLoadFromBookMark) info = CommonUtil::getBookMarkByPath(_filePath);
  if (!info) info = UWebViewUtil::getLastOpenByPath(_filePath);
  if (info) _openInfo = *info;
}

void EditorBaseController::createFormatParser() {
  _formatParser =
      CodeFactory::codeFormatParserWithExtension(fileExtension(), inFileExtension(), _filePath);
  if (!_formatParser) return;
  _formatParser->defaultFont = _defaultFont;
  _formatParser->extTag = _formatParser->formatType;
}

void EditorBaseController::changeFormatParser(const std::string& extension) {
  if (extension == fileExtension()) return;
  _formatParser =
      CodeFactory::codeFormatParserWithExtension(extension, inFileExtension(), _filePath);
  if (!_formatParser) return;
  _formatParser->defaultFont = _defaultFont;
  _formatParser->extTag = _formatParser->formatType;
  _formatParser->changeInputAccessoryView(_selection);
  // The keys follow the new type once the new extension is in place.
}

std::optional<std::u16string> EditorBaseController::loadData(const std::string& path,
                                                             const std::string& encoding,
                                                             std::string* used) {
  if (!encoding.empty() && encoding != kAutomatic) {
    if (auto bytes = FileBytes::read(path)) {
      auto text = StringEncodings::decode(bytes->view(),
                                          EncodingUtil::convertStringToNSStringEncoding(encoding));
      if (text) {
        *used = encoding;
        return text;
      }
    }
  }
  return loadDataAutomatic(path, used);
}

std::optional<std::u16string> EditorBaseController::loadDataAutomatic(const std::string& path,
                                                                      std::string* used) {
  std::string found;
  auto text = DetectorCharacter::detectorWithFilePath(path, &found);
  // Empty when nothing decodes.
  *used = text ? found : std::string();
  return text;
}

void EditorBaseController::setContent(const std::u16string& text, bool readable) {
  _loading = false;
  if (_view) _view->setBusy(false);
  // A file that could not be read shows empty and stays read-only: saving
  // the empty text would replace the file with nothing.
  _isReadOnly = !readable;
  if (_formatParser) _formatParser->checkTag(text);
  resetText(text);
  if (_isViewDidLoad) gotoLastPosition();
}

void EditorBaseController::resetText(const std::u16string& text) {
  // A loaded or template text starts a fresh journal.
  _journal = UnDoManager::instanceWithString(text);
  syncStorageWithJournal();
  _selection = TextRange{0, 0};
  invokeFormater();
}

void EditorBaseController::viewDidDisappear(bool presentedOnTop) {
  if (!presentedOnTop) stopTimer();
}

void EditorBaseController::startTimer() {
  stopTimer();
  std::weak_ptr<EditorBaseController> weak = weak_from_this();
  _timer = MainQueue::shared().postAfter(kFormatDelay, [weak] {
    if (auto self = weak.lock()) self->formatCodeTimer();
  });
}

void EditorBaseController::stopTimer() {
  if (_timer) _timer->cancel();
  _timer.reset();
}

void EditorBaseController::formatCodeTimer() {
  _timer.reset();
  // An empty editing bracket: the text is the same, the pass runs again.
  invokeFormater();
}

void EditorBaseController::syncStorageWithJournal() {
  // Only the span that differs is replaced, so the colours around it and
  // whoever observes the storage see one edit, as for a keystroke.
  const std::u16string& want = text();
  const std::u16string& have = _textStorage.string();
  std::size_t prefix = 0;
  const std::size_t shorter = std::min(want.size(), have.size());
  while (prefix < shorter && want[prefix] == have[prefix]) ++prefix;
  std::size_t suffix = 0;
  while (suffix < shorter - prefix &&
         want[want.size() - 1 - suffix] == have[have.size() - 1 - suffix])
    ++suffix;
  if (prefix == want.size() && prefix == have.size()) return;
  _textStorage.replaceCharacters(
      TextRange{prefix, have.size() - prefix - suffix},
      std::u16string_view(want).substr(prefix, want.size() - prefix - suffix));
}

void EditorBaseController::invokeFormater() {
  if (_formatParser) _formatParser->parserSmart(_textStorage);
}

void EditorBaseController::gotoLastPosition() {
  const auto number = [&](const char* key) -> double {
    auto it = _openInfo.find(key);
    if (it == _openInfo.end()) return 0;
    if (auto i = it->second.asInteger()) return static_cast<double>(*i);
    if (auto r = it->second.asReal()) return *r;
    return 0;
  };
  if (const double offset = number(SYSTEM_BOOKMARK_TEXT_START); offset > 0) {
    _firstVisibleOffset = std::min<std::size_t>(static_cast<std::size_t>(offset), text().size());
    if (_view) _view->scrollToOffset(_firstVisibleOffset);
    return;
  }
  const double height = number(SYSTEM_BOOKMARK_SCROLLY);
  if (height <= 0 || !_view) return;
  _scrollY = std::max(0.0, std::min(height, _view->contentHeight() - _view->viewHeight()));
  _view->scrollToHeight(_scrollY);
}

// ---- toolbar, share sheet and progress bar ------------------------------------------------

std::vector<std::string> EditorBaseController::toolbarItems() const {
  std::vector<std::string> items{"enlarge", "reduce"};
  if (_formatParser && _formatParser->isSupportPreview()) items.push_back("preview");
  if (!_isOnline && !_isAddFile) items.push_back("bookmark");
  items.push_back("progress");
  items.push_back("share");
  return items;
}

std::vector<std::string> EditorBaseController::shareRows() const {
  std::vector<std::string> rows;
  const auto offers = [&](ScreenRoute route) { return _view && _view->supportsRoute(route); };
  if (offers(ScreenRoute::HandOver)) rows.push_back("Open In...");
  if (offers(ScreenRoute::Mail)) rows.push_back("Email");
  if (offers(ScreenRoute::Print)) rows.push_back("Print");
  rows.push_back("Cancel");
  return rows;
}

void EditorBaseController::actionItem() {
  if (!_view) return;
  const std::vector<std::string> rows = shareRows();
  std::weak_ptr<EditorBaseController> weak = weak_from_this();
  ScreenSheet sheet;
  sheet.tag = kTagShare;
  sheet.rows = rows;
  _view->showSheet(sheet, [weak, rows](int row) {
    auto self = weak.lock();
    if (!self || !self->_view || row < 0 || static_cast<std::size_t>(row) >= rows.size()) return;
    const std::string& title = rows[static_cast<std::size_t>(row)];
    const std::string name = FileUtil::getFileName(self->_filePath);
    if (title == "Open In...")
      self->_view->openRoute(ScreenRoute::HandOver, self->_filePath, name);
    else if (title == "Email")
      self->_view->openRoute(ScreenRoute::Mail, self->_filePath, name);
    else if (title == "Print")
      self->_view->openRoute(ScreenRoute::Print, self->_filePath, name);
  });
}

void EditorBaseController::setVisibleRange(TextRange range) {
  _visibleRange = range;
  _firstVisibleOffset = std::min(range.location, text().size());
}

bool EditorBaseController::isSliderEnabled() const {
  // Nothing to move through when the whole text is in sight.
  return !(_visibleRange.location == 0 && _visibleRange.length >= text().size());
}

void EditorBaseController::sliderReleased(std::size_t value) {
  _firstVisibleOffset = std::min(value, text().size());
  if (_view) _view->scrollToOffset(_firstVisibleOffset);
}

void EditorBaseController::textViewScrollChangeTextStorage() {
  if (!_formatParser) return;
  // The text is unchanged: the pass only recolours for the new range.
  _formatParser->setVisibleRange(_visibleRange);
  invokeFormater();
}

// ---- editing -----------------------------------------------------------------------------

void EditorBaseController::setEditing(bool editing) {
  _editable = editing && !_isReadOnly && !_loading;
  if (_view) _view->setEditable(_editable);
}

void EditorBaseController::setSelectedRange(TextRange range) {
  hideSuggestions();
  std::size_t size = text().size();
  range.location = std::min(range.location, size);
  range.length = std::min(range.length, size - range.location);
  _selection = range;
}

bool EditorBaseController::changeText(TextRange range, const std::u16string& replacement) {
  if (!_editable || range.location > text().size() ||
      range.length > text().size() - range.location) {
    return false;
  }
  // Return on a showing list takes the highlighted suggestion instead.
  if (replacement == u"\n" && !_suggestItems.empty()) {
    selectedKeywordsItem(_suggestItems[std::min(_selectedSuggestion, _suggestItems.size() - 1)]);
    return false;
  }
  // Replacing a selection is a step of its own; typing at a caret makes a
  // step every eleven keystrokes.
  if (range.length > 0) {
    _journal->stopGrouping();
    _contentChangeLength = 0;
  } else if (++_contentChangeLength >= kKeystrokesPerStep) {
    _journal->stopGrouping();
    _contentChangeLength = 0;
  }
  if (_formatParser) _formatParser->lastInputString = replacement;
  applyChange(range, replacement);
  loadSuggestItems();
  return true;
}

bool EditorBaseController::insertText(const std::u16string& input) {
  TextEdit edit = _codeTextView.insertText(text(), _selection, input);
  if (!changeText(edit.range, edit.text)) return false;
  if (edit.caret != _selection.location) _selection = TextRange{edit.caret, 0};
  return true;
}

bool EditorBaseController::deleteBackward() {
  auto edit = _codeTextView.deleteBackward(text(), _selection);
  return edit && changeText(edit->range, edit->text);
}

std::string EditorBaseController::lineNumberText(std::size_t offset) {
  return _layoutManager.gutterText(text(), offset);
}

void EditorBaseController::applyChange(TextRange range, const std::u16string& replacement) {
  _journal->startGrouping();
  _journal->addUndoItem(range.location, range.length, replacement);
  _textStorage.replaceCharacters(range, replacement);
  _selection = TextRange{range.location + replacement.size(), 0};
  invokeFormater();
}

// ---- keys and smart input ----------------------------------------------------------------

void EditorBaseController::changeInputAccessoryView() {
  _keys = EditorKeyboardItems::getInputViewItemsByType(toUtf8(formatType()), fileNameCommon());
  if (!_view) return;
  std::vector<std::string> titles;
  for (const auto& key : _keys) titles.push_back(key._textLabel);
  _view->setKeys(titles);
}

bool EditorBaseController::performKey(std::size_t index, bool longPress) {
  if (index >= _keys.size()) return false;
  const EditCommonButton key = _keys[index];
  const std::string& action = longPress ? key._longPress : key._clickAction;
  if (action.empty()) return false;
  return performAction(action, key);
}

bool EditorBaseController::performAction(const std::string& action, const EditCommonButton& key) {
  const long tagLength = static_cast<long>(key.stringTag.size());
  if (action == "undoAction:") {
    undoAction();
  } else if (action == "redoAction:") {
    redoAction();
  } else if (action == "forwardCursor:") {
    if (!_suggestItems.empty()) {
      _selectedSuggestion = std::min(_selectedSuggestion + 1, _suggestItems.size() - 1);
    } else {
      focusDiff(1);
    }
  } else if (action == "rewindCursor:") {
    if (!_suggestItems.empty()) {
      _selectedSuggestion = _selectedSuggestion > 0 ? _selectedSuggestion - 1 : 0;
    } else {
      focusDiff(-1);
    }
  } else if (action == "forwardWordCursor:") {
    if (!_suggestItems.empty()) {
      _selectedSuggestion = _suggestItems.size() - 1;
    } else {
      forwardWordCursor();
    }
  } else if (action == "rewindWordCursor:") {
    if (!_suggestItems.empty()) {
      _selectedSuggestion = 0;
    } else {
      rewindWordCursor();
    }
  } else if (!_editable) {
    return true;  // the keys that enter text wait for Edit
  } else if (action == "clickBarItem:") {
    textViewInput(key.stringTag, 0);
  } else if (action == "clickBarItem2Char:") {
    textViewInput(key.stringTag + key.stringTag, -tagLength);
  } else if (action == "clickBarItem2CharFocusEnd:" || action == "clickBarItem2CharZeroOffset:") {
    textViewInput(key.stringTag + key.stringTag, 0);
  } else if (action == "clickBarLongClickBackTag2:") {
    textViewInput(key.stringTag + key.stringTag2, -static_cast<long>(key.stringTag2.size()));
  } else if (action == "clickHtmlTags:") {
    textViewInput(u"<>", -1);
  } else if (action == "clickLongGreatChar:") {
    textViewInput(u"/", 0);
  } else {
    return false;
  }
  return true;
}

void EditorBaseController::textViewInput(const std::u16string& input, long focusIndexDiff) {
  if (!input.empty() && _editable) {
    // Toolbar text of two or more units is an undo step of its own.
    if (input.size() >= 2) _journal->stopGrouping();
    ++_contentChangeLength;
    if (_formatParser) _formatParser->lastInputString = input;
    applyChange(_selection, input);
  }
  focusDiff(focusIndexDiff);
}

void EditorBaseController::focusDiff(long diff) {
  const std::size_t size = text().size();
  std::size_t target;
  if (diff == kFocusTop) {
    target = 0;
  } else if (diff == kFocusEnd) {
    target = size;
  } else if (diff == 0) {
    return;
  } else {
    // A forward move leaves a selection at its end.
    long base = static_cast<long>(diff > 0 ? _selection.end() : _selection.location);
    long moved = std::clamp<long>(base + diff, 0, static_cast<long>(size));
    target = static_cast<std::size_t>(moved);
  }
  // Never between the halves of a surrogate pair.
  if (target > 0 && target < size && (text()[target] & 0xFC00) == 0xDC00 &&
      (text()[target - 1] & 0xFC00) == 0xD800) {
    target += diff < 0 ? -1 : 1;
  }
  if (target == _selection.location && _selection.length == 0) return;
  setSelectedRange(TextRange{target, 0});
  if (_view) _view->scrollToOffset(target);
}

namespace {

bool isWordUnit(char16_t c) {
  return c == u'_' || (c < 0x80 ? std::isalnum(static_cast<unsigned char>(c)) != 0
                                : (c & 0xF800) != 0xD800 && c > 0xBF);
}

}  // namespace

void EditorBaseController::forwardWordCursor() {
  const std::u16string& t = text();
  std::size_t at = _selection.end();
  if (at < t.size()) {
    ++at;
    if (at < t.size()) {
      const bool word = isWordUnit(t[at]);
      while (at < t.size() && isWordUnit(t[at]) == word) ++at;
    }
  }
  textViewInput(u"", static_cast<long>(at) - static_cast<long>(_selection.end()));
}

void EditorBaseController::rewindWordCursor() {
  const std::u16string& t = text();
  const std::size_t start = _selection.location;
  if (start < 2) return textViewInput(u"", -2);
  std::size_t at = start - 2;
  const bool word = isWordUnit(t[at]);
  while (at > 0 && isWordUnit(t[at - 1]) == word) --at;
  textViewInput(u"", static_cast<long>(at) - static_cast<long>(start));
}

bool EditorBaseController::tryLockSearching() {
  return _searching.try_lock();
}

void EditorBaseController::hideSuggestions() {
  if (_suggestItems.empty()) return;
  _suggestItems.clear();
  _selectedSuggestion = 0;
  if (_view) _view->showSuggestions({});
}

void EditorBaseController::loadSuggestItems() {
  if (!_formatParser) return;
  CodeFormatParser* parser = _formatParser->getCodeFormatParserByAccessoryType();
  if (!parser || parser->className() == "OtherTextFileFormatParser") return;
  if (!tryLockSearching()) return;
  std::lock_guard lock(_searching, std::adopt_lock);
  SuggestField field;
  if (!parser->isCanLoadSuggestItems(parser->lastInputString, _selection, field)) {
    return hideSuggestions();
  }
  std::u16string term = parser->previousStringBySplitChar(_selection.location);
  parser->searchTerm = term;
  parser->searchTermLocation = _selection.location - std::min(term.size(), _selection.location);
  if (term.empty()) return hideSuggestions();
  parser->loadSuggestItems(*_suggestBridge);
}

void EditorBaseController::selectedKeywordsItem(const std::u16string& item) {
  if (!_formatParser || !tryLockSearching()) return;
  std::lock_guard lock(_searching, std::adopt_lock);
  CodeFormatParser* parser = _formatParser->getCodeFormatParserByAccessoryType();
  if (!parser) parser = _formatParser.get();
  const std::u16string term = parser->searchTerm;
  _suggestItems.clear();
  if (_view) _view->showSuggestions({});
  if (item.starts_with(term)) {
    // The rest of the item; a suggestion equal to the term enters nothing.
    if (item.size() > term.size()) {
      textViewInput(item.substr(term.size()), parser->selectedKeywordsItemFocusDiff(item));
    }
    return;
  }
  std::size_t start = parser->searchTermLocation;
  if (start + term.size() > text().size()) return;
  _contentChangeLength = 0;
  _journal->stopGrouping();
  applyChange(TextRange{start, term.size()}, item);
}

void EditorBaseController::undoAction() {
  // The buttons step two entries at a time.
  _journal->undo();
  if (_journal->isCanUndo()) _journal->undo();
  syncStorageWithJournal();
  _selection = TextRange{std::min<std::size_t>(_journal->lastAppliedEnd(), text().size()), 0};
  invokeFormater();
}

void EditorBaseController::redoAction() {
  _journal->redo();
  if (_journal->isCanRedo()) _journal->redo();
  syncStorageWithJournal();
  _selection = TextRange{std::min<std::size_t>(_journal->lastAppliedEnd(), text().size()), 0};
  invokeFormater();
}

// ---- options --------------------------------------------------------------------------

std::vector<std::string> EditorBaseController::optionRows() const {
  std::vector<std::string> rows{"Save", "Rename"};
  if (_formatParser && _formatParser->isSupportPreview() && _view &&
      _view->supportsRoute(ScreenRoute::Preview)) {
    rows.push_back("Preview");
  }
  if (canUndo()) rows.push_back("Undo");
  if (canRedo()) rows.push_back("Redo");
  if (!canUndo() && !_isAddFile) rows.push_back("ChangeEncoding");
  if (_formatParser && _formatParser->className() == "HtmlFormatParser" &&
      EditorHooks::isQuillpad && EditorHooks::isQuillpad()) {
    rows.push_back("Get html text");
  }
  rows.push_back("Comments");
  rows.push_back("Cancel");
  return rows;
}

void EditorBaseController::alertActionSheet() {
  if (!_view) return;
  std::vector<std::string> rows = optionRows();
  std::weak_ptr<EditorBaseController> weak = weak_from_this();
  ScreenSheet sheet;
  sheet.tag = kTagOptions;
  sheet.rows = rows;
  _view->showSheet(sheet, [weak, rows](int row) {
    auto self = weak.lock();
    if (self && row >= 0 && static_cast<std::size_t>(row) < rows.size()) self->onOption(rows[row]);
  });
}

void EditorBaseController::onOption(const std::string& row) {
  if (row == "Save") {
    if (_isAddFile && _fileName2.empty()) return alertViewChangeFileName(kTagNameBeforeSave);
    return saveAndClose();
  }
  if (row == "Rename") return alertViewChangeFileName(kTagRename);
  if (row == "Preview") return viewText();
  if (row == "Undo") return undoAction();
  if (row == "Redo") return redoAction();
  if (row == "ChangeEncoding") {
    if (_view) _view->pickEncoding(_isOnline ? std::string() : _filePath, _encodingString);
    return;
  }
  if (row == "Comments") {
    if (!_formatParser) return;
    TextRange selected = _selection;
    auto result = _formatParser->unComments(selected);
    if (!result) result = _formatParser->comments(selected);
    if (!result) return;
    bool wasEditable = _editable;
    _editable = true;
    _journal->stopGrouping();
    _contentChangeLength = 0;
    changeText(selected, *result);
    _editable = wasEditable;
    _selection = TextRange{selected.location, result->size()};
    return;
  }
  if (row == "Get html text") {
    auto* html = dynamic_cast<HtmlFormatParser*>(_formatParser.get());
    if (!html) return;
    std::string folder = EditorHooks::browserFolder();
    std::string target = FileUtil::getCreateFileName(folder, fileNameNoExtension(), "txt");
    if (auto error = writeFileAtomically(target, toUtf8(html->getHtmlText()))) {
      return showError(error->message);
    }
    std::string lead = localizedString("Save the file to ...");
    if (lead.size() >= 3 && lead.ends_with("...")) lead.resize(lead.size() - 3);
    if (_view) {
      _view->showMessage("Save the file to ...", lead + FileUtil::getDocumentRelativePath(target));
    }
  }
}

// ---- names and saving ----------------------------------------------------------------------

void EditorBaseController::alertViewChangeFileName(int tag) {
  if (!_view) return;
  ScreenAlert alert;
  alert.tag = tag;
  alert.key = "Rename";
  alert.text = localizedString("Rename");
  alert.buttons = {localizedString("Cancel"), localizedString("OK")};
  alert.fields = {{localizedString("Name"), fileNameNoExtension()},
                  {localizedString("File Extension"), fileExtension()}};
  std::weak_ptr<EditorBaseController> weak = weak_from_this();
  _view->showAlert(alert, [weak, tag](int button, const std::vector<std::string>& fields) {
    if (auto self = weak.lock()) self->onAlert(tag, button, fields);
  });
}

void EditorBaseController::applyNames(const std::vector<std::string>& fields) {
  std::string name = fields.size() > 0 ? trim(std::string_view(fields[0])) : std::string();
  std::string extension = fields.size() > 1 ? trim(std::string_view(fields[1])) : std::string();
  if (name.empty()) return;
  _fileName2 = name;
  changeFormatParser(extension);
  _fileExtension2 = extension;
  changeInputAccessoryView();
  updateTitle();
}

void EditorBaseController::onAlert(int tag, int button, const std::vector<std::string>& fields) {
  switch (tag) {
    case kTagRename:
      if (button == 1) applyNames(fields);
      break;
    case kTagNameBeforeSave:
      if (button == 1) {
        applyNames(fields);
        saveAndClose();
      }
      break;
    case kTagSaveChanges:
      if (button == 1) return saveAndClose();
      // What the user throws away stays in the backup folder.
      if (!text().empty()) EditorBak::backupToFileName(fileNameCommon(), text());
      cancelCurrent();
      break;
    default:
      break;
  }
}

void EditorBaseController::cancelAct() {
  if (canUndo()) {
    if (!_view) return;
    std::weak_ptr<EditorBaseController> weak = weak_from_this();
    ScreenAlert alert;
    alert.tag = kTagSaveChanges;
    alert.key = "Would you like to save your changes?";
    alert.text = localizedString("Would you like to save your changes?");
    alert.buttons = {localizedString("Cancel"), localizedString("OK")};
    _view->showAlert(alert, [weak](int button, const std::vector<std::string>& fields) {
      if (auto self = weak.lock()) self->onAlert(kTagSaveChanges, button, fields);
    });
    return;
  }
  saveLastOpenBookMark();
  cancelCurrent();
}

void EditorBaseController::saveAndClose() {
  saveLastOpenBookMark();
  bool safe = saveToFile();
  if (!_isOnline && safe) cancelCurrent();
}

void EditorBaseController::cancelCurrent() {
  if (_currentThread) _currentThread->cancel();
  if (_view) _view->close();
}

bool EditorBaseController::saveToFile() {
  const std::u16string str = text();
  if (_isOnline) {
    saveToFileByOnline(str);
    return true;
  }
  // Nothing was read, so there is nothing to write back.
  if (_isReadOnly && !_isAddFile) return true;

  std::string target;
  std::optional<std::string> backup;
  if (_isAddFile) {
    std::string name = FileUtil::getFileName(_filePath);
    std::string stem = _fileName2.empty() ? stemOf(name) : _fileName2;
    std::string ext = _fileName2.empty() ? extensionOf(name) : _fileExtension2;
    target = FileUtil::getCreateFileName(folderPathCommon(), stem, ext);
    _filePath = target;
    backup = EditorBak::backupToFileName(FileUtil::getFileName(target), str);
  } else if (!_fileName2.empty()) {
    target = (fs::path(folderPathCommon()) / fileNameCommon()).string();
    backup = EditorBak::backupToFileName(fileNameCommon(), str);
    if (target != _filePath) {
      if (auto error = moveNoReplace(_filePath, target)) {
        showError(error->message);
        return false;
      }
    }
  } else {
    target = _filePath;
    backup = EditorBak::backupToFileName(FileUtil::getFileName(_filePath), str);
  }
  Error error;
  if (EditorBak::saveDataToPath(target, str, &error)) return true;
  // The backup made just before holds the text; without one the user must see why.
  if (backup) return true;
  showError(error.message);
  return false;
}

void EditorBaseController::saveToFileByOnline(const std::u16string& str) {
  const std::string name = fileNameCommon();
  if (name.empty()) {
    if (_view) _view->showMessage("NameNotNull", localizedString("NameNotNull"));
    return;
  }
  // The delegate may talk to a slow store: it runs on the screen's thread,
  // and the answer comes back to the main queue.
  if (_currentThread) _currentThread->cancel();
  _saving = true;
  if (_view) _view->setBusy(true);
  std::weak_ptr<EditorBaseController> weak = weak_from_this();
  ICreateFile* delegate = _delegate;
  const bool addFile = _isAddFile;
  const std::string oldName = _fileName;
  const std::string dir = folderPathCommon();
  void* object = _currentObject;
  _currentThread =
      CancellableThread::startDetached([weak, str, name, delegate, addFile, oldName, dir, object] {
        EditorBak::backupToFileName(name, str);
        const bool stored =
            delegate && delegate->CreateFile(name, str, addFile, oldName, dir, object);
        const bool cancelled = isCurrentThreadCancelled();
        MainQueue::shared().postAndWait([weak, stored, cancelled] {
          auto self = weak.lock();
          if (!self) return;
          self->_saving = false;
          if (stored) {
            self->cancelCurrent();
          } else if (!cancelled && self->_view) {
            self->_view->showMessage("NameNotNull", localizedString("NameNotNull"));
          }
          if (self->_view) self->_view->setBusy(false);
        });
      });
}

void EditorBaseController::cancel() {
  if (_currentThread) _currentThread->cancel();
  if (_delegate) _delegate->cancel();
}

void EditorBaseController::viewText() {
  std::string path = _filePath;
  if (_isOnline) {
    fs::path dir = fs::path(FileUtil::tempDirectory()) / detail::makeUUID();
    std::error_code ec;
    fs::create_directories(dir, ec);
    path = (dir / fileNameCommon()).string();
    EditorBak::saveDataToPath(path, text());
  } else {
    saveToFile();
  }
  if (_view) _view->openRoute(ScreenRoute::Preview, path, fileNameCommon());
}

// ---- view settings ----------------------------------------------------------------------

void EditorBaseController::setCurrentFont(double size) {
  _defaultFont.size = size;
  if (_formatParser) _formatParser->defaultFont = _defaultFont;
  _textStorage.addFont(_defaultFont, TextRange{0, _textStorage.length()});
}

Color EditorBaseController::textViewBackgroundColor(bool darkDesktop) {
  if (darkDesktop || AppUserDefaultUtils::isNightModeTime()) return Color::rgb(0xBA, 0xBA, 0xBA);
  return Color::rgb(0xFF, 0xFF, 0xFF);
}

void EditorBaseController::enlargeFontSize() {
  if (_defaultFont.size < kMaxFontSize) setCurrentFont(_defaultFont.size + 2);
}

void EditorBaseController::reduceFontSize() {
  if (_defaultFont.size > kMinFontSize) setCurrentFont(_defaultFont.size - 2);
}

void EditorBaseController::saveBookMark() {
  if (_isOnline || _isAddFile) return;
  std::lock_guard lock(_positionLock);
  CommonUtil::saveBookMarkPath(_filePath, static_cast<long long>(_defaultFont.size),
                               static_cast<long long>(_scrollY), true);
  if (_view) _view->showMessage("AddBookMarkSuccess", localizedString("AddBookMarkSuccess"));
}

void EditorBaseController::saveLastOpenBookMark() {
  if (_isOnline || _filePath.empty()) return;
  std::lock_guard lock(_positionLock);
  UWebViewUtil::saveLastOpen(
      {{SYSTEM_BOOKMARK_FONT_SIZE, PlistValue(_defaultFont.size)},
       {SYSTEM_BOOKMARK_SCROLLY, PlistValue(static_cast<long long>(_scrollY))},
       {SYSTEM_BOOKMARK_ISSOURCE, PlistValue(true)},
       {SYSTEM_BOOKMARK_TEXT_START, PlistValue(static_cast<long long>(_firstVisibleOffset))}},
      _filePath);
}

void EditorBaseController::encodingChange(const std::string& name) {
  _encodingString = name;
  if (_isAddFile || _isOnline) return;
  std::string used;
  auto loaded = loadData(_filePath, name, &used);
  _encodingString = used;
  setContent(loaded.value_or(std::u16string()), loaded.has_value());
}

void EditorBaseController::updateTitle() {
  if (_view) _view->setTitle(fileNameCommon().empty() ? _fileName : fileNameCommon());
}

void EditorBaseController::showError(const std::string& message) {
  HB_LOG("EditorBaseController", message);
  if (!_view) return;
  ScreenAlert alert;
  alert.text = message;
  alert.buttons = {localizedString("OK")};
  _view->showAlert(alert, nullptr);
}

}  // namespace harbor
