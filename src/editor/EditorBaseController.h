#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "editor/CodeTextView.h"
#include "editor/EditorKeyboardItems.h"
#include "editor/UnDoManager.h"
#include "platform/Cancellation.h"
#include "platform/MainQueue.h"
#include "platform/ScreenPort.h"
#include "platform/TextStorage.h"
#include "platform/UserDefaults.h"
#include "prefs/PreferenceKeys.h"

namespace harbor {

class CodeFormatParser;

// What the editor screen shows beyond the common port.
class IEditorView : public IScreenPort {
 public:
  virtual void setEditable(bool) {}
  virtual void setKeys(const std::vector<std::string>&) {}
  virtual void showSuggestions(const std::vector<std::u16string>&) {}
  virtual void scrollToOffset(std::size_t) {}
  // Scrolling by height, for records that kept no offset; the view's
  // measures clamp it.
  virtual void scrollToHeight(double) {}
  virtual double contentHeight() const { return 0; }
  virtual double viewHeight() const { return 0; }
  // The encoding picker for `path` (empty when online), starting at `current`.
  virtual void pickEncoding(const std::string& path, const std::string& current) {
    (void)path;
    (void)current;
  }
};

// Stores the text of a cloud item on the editor's behalf.
class ICreateFile {
 public:
  virtual ~ICreateFile() = default;
  virtual bool CreateFile(const std::string& name, const std::u16string& content, bool addType,
                          const std::string& oldName, const std::string& dir, void* obj) = 0;
  virtual void cancel() {}
};

// Hooks the application sets at launch: they belong to layers above the editor.
struct EditorHooks {
  static std::function<bool()> isQuillpad;
  // The folder the file browser shows.
  static std::function<std::string()> browserFolder;
};

// The text editor screen: opening, editing, saving, renaming and leaving a
// document. Every question goes through the view's port; its answers come
// back to the handlers given with them.
class EditorBaseController : public std::enable_shared_from_this<EditorBaseController> {
 public:
  static constexpr int kTagRename = 1000;
  static constexpr int kTagSaveChanges = 1001;
  static constexpr int kTagNameBeforeSave = 1002;
  static constexpr int kTagOptions = 2000;
  static constexpr int kTagShare = 2001;
  static constexpr double kMaxFontSize = 60;
  static constexpr double kMinFontSize = 10;
  static constexpr std::chrono::seconds kFormatDelay{6};

  static std::shared_ptr<EditorBaseController> instanceWithPath(const std::string& path,
                                                                IEditorView* view);
  ~EditorBaseController();

  // Set before viewDidLoad.
  bool _isAddFile = false;
  bool _isOnline = false;
  bool _isLoadFromBookMark = false;
  ICreateFile* _delegate = nullptr;
  void* _currentObject = nullptr;

  void viewDidLoad();
  void viewDidAppear();
  // Leaving sight stops the deferred formatting, unless a screen was only
  // presented on top.
  void viewDidDisappear(bool presentedOnTop);
  // The end of the screen: stops the load and forgets the port.
  void endScreen();

  // ---- editing ---------------------------------------------------------------
  // The keyboard's change: answers whether it was applied.
  bool changeText(TextRange range, const std::u16string& text);
  void setEditing(bool editing);
  void setSelectedRange(TextRange range);
  void undoAction();
  void redoAction();
  bool canUndo() const { return _journal->isCanUndo(); }
  bool canRedo() const { return _journal->isCanRedo(); }

  // Typing one key's text, with pair completion; Backspace.
  bool insertText(const std::u16string& input);
  bool deleteBackward();
  // The gutter's number for the line holding `offset`.
  std::string lineNumberText(std::size_t offset);

  // ---- keys and smart input ---------------------------------------------------------
  static constexpr long kFocusTop = INT64_MIN;
  static constexpr long kFocusEnd = INT64_MAX;
  const std::vector<EditCommonButton>& keys() const { return _keys; }
  // Runs a key's tap or long-press operation; false for a key that has none.
  bool performKey(std::size_t index, bool longPress);
  bool performAction(const std::string& action, const EditCommonButton& key);
  // Toolbar input: enters `text` at the selection, then moves the caret.
  void textViewInput(const std::u16string& text, long focusIndexDiff);
  void focusDiff(long focusIndexDiff);
  void forwardWordCursor();
  void rewindWordCursor();
  // The suggestion list: empty when hidden; the highlighted row.
  const std::vector<std::u16string>& suggestItems() const { return _suggestItems; }
  std::size_t selectedSuggestion() const { return _selectedSuggestion; }
  // Return while the list shows enters the highlighted item.
  void selectedKeywordsItem(const std::u16string& item);
  void changeInputAccessoryView();

  // Deferred formatting: one pending pass, replaced by each new request.
  void startTimer();
  void stopTimer();
  bool isTimerPending() const { return _timer != nullptr; }

  // ---- saving and leaving -------------------------------------------------------
  void alertActionSheet();
  // The options sheet's rows as they stand now.
  std::vector<std::string> optionRows() const;
  void cancelAct();
  // Answers whether the text is safe: written, or at least in a backup.
  bool saveToFile();
  void saveAndClose();
  void cancelCurrent();
  void alertViewChangeFileName(int tag);
  void viewText();
  // Stops the running load or online save and tells the delegate.
  void cancel();

  // ---- toolbar, share sheet, progress bar ----------------------------------------
  // In order: "enlarge", "reduce", "preview" (pages), "bookmark" (local
  // files), "progress", "share".
  std::vector<std::string> toolbarItems() const;
  // Sheet 2001: the hand-over, mail and print rows the port serves, "Cancel".
  std::vector<std::string> shareRows() const;
  void actionItem();
  // The view reports what is in sight; the progress bar runs from 0 to the
  // text's length and sits at the first visible offset.
  void setVisibleRange(TextRange range);
  std::size_t sliderMaximum() const { return text().size(); }
  std::size_t sliderValue() const { return _firstVisibleOffset; }
  bool isSliderEnabled() const;
  void sliderReleased(std::size_t value);
  void textViewScrollChangeTextStorage();

  // ---- view settings -------------------------------------------------------------
  // The text's background: grey in night hours (or when the caller's
  // desktop is dark), white otherwise.
  static Color textViewBackgroundColor(bool darkDesktop = false);
  void enlargeFontSize();
  void reduceFontSize();
  void setFirstVisibleOffset(std::size_t offset) { _firstVisibleOffset = offset; }
  // The view's scroll height, kept in the position records.
  void setScrollY(double y) { _scrollY = y < 0 ? 0 : y; }
  void saveBookMark();
  void saveLastOpenBookMark();
  void encodingChange(const std::string& name);

  // ---- state -----------------------------------------------------------------------
  const std::u16string& text() const { return _journal->getSourceString(); }
  // The coloured text a view mirrors; add an edit observer to follow it.
  TextStorage& textStorage() { return _textStorage; }
  TextRange selection() const { return _selection; }
  const std::string& filePath() const { return _filePath; }
  const std::string& encodingString() const { return _encodingString; }
  double fontSize() const { return _defaultFont.size; }
  bool isEditable() const { return _editable; }
  bool isReadOnly() const { return _isReadOnly; }
  bool isLoading() const { return _loading; }
  // A load or an online save still running.
  bool isBusy() const { return _loading || _saving; }
  std::u16string formatType() const;
  std::string fileNameCommon() const;
  std::string fileExtension() const;
  std::string fileNameNoExtension() const;
  std::string inFileExtension() const;
  std::string folderPathCommon() const;

 private:
  EditorBaseController(const std::string& path, IEditorView* view);

  void loadPageInfo();
  void createFormatParser();
  void changeFormatParser(const std::string& extension);
  void loadTextInThread(const CancellationToken& token);
  // Both run on the loading thread: they touch no member. `used` gets the
  // encoding that decoded, empty when none did.
  static std::optional<std::u16string> loadData(const std::string& path,
                                                const std::string& encoding, std::string* used);
  static std::optional<std::u16string> loadDataAutomatic(const std::string& path,
                                                         std::string* used);
  void setContent(const std::u16string& text, bool readable);
  void saveToFileByOnline(const std::u16string& str);
  void formatCodeTimer();
  // Brings the storage to the journal's text by one edit of the span that differs.
  void syncStorageWithJournal();
  void resetText(const std::u16string& text);
  void invokeFormater();
  void gotoLastPosition();
  void applyNames(const std::vector<std::string>& fields);
  void onAlert(int tag, int button, const std::vector<std::string>& fields);
  void onOption(const std::string& row);
  void setCurrentFont(double size);
  void updateTitle();
  void showError(const std::string& message);
  void applyChange(TextRange range, const std::u16string& text);
  void loadSuggestItems();
  void hideSuggestions();
  bool tryLockSearching();

  IEditorView* _view;
  std::string _filePath;
  std::string _fileName;
  std::string _fileName2;
  std::string _fileExtension2;
  std::string _encodingString = "Automatic";
  bool _isViewDidLoad = false;
  bool _isHadLoadedPage = false;
  bool _isReadOnly = false;
  bool _editable = false;
  bool _loading = false;
  bool _saving = false;
  TextRange _visibleRange;
  std::uint64_t _contentChangeLength = 0;
  PlistValue::Map _openInfo;
  Font _defaultFont{"monospace", 16};
  std::shared_ptr<CodeFormatParser> _formatParser;
  std::shared_ptr<UnDoManager> _journal = UnDoManager::instanceWithString({});
  TextStorage _textStorage;
  TextRange _selection;
  std::size_t _firstVisibleOffset = 0;
  double _scrollY = 0;
  std::optional<CancellationToken> _currentThread;
  std::shared_ptr<MainQueue::Timer> _timer;
  std::mutex _positionLock;
  std::vector<EditCommonButton> _keys;
  CodeTextView _codeTextView;
  CYRLayoutManager _layoutManager;
  std::vector<std::u16string> _suggestItems;
  std::size_t _selectedSuggestion = 0;
  // Suggestion loading and insertion exclude each other; a busy one is skipped.
  std::mutex _searching;
  class SuggestBridge;
  std::unique_ptr<SuggestBridge> _suggestBridge;
};

}  // namespace harbor
