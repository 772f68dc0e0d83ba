#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "filemanager/FilePresenter.h"
#include "filemanager/watcher/DirectoryWatcher.h"
#include "platform/Cancellation.h"
#include "platform/NotificationCenter.h"
#include "platform/ScreenPort.h"

namespace harbor {

// What any browser screen holds: the presenter of its folder, its title,
// order, selection, search and password prompts, and its one worker. It talks
// to the user only through the screen port.
class FileManagerBaseController : public ViewController,
                                  public IFileExplorer,
                                  public IFilePresenter,
                                  public DirectoryWatcherDelegate,
                                  public std::enable_shared_from_this<FileManagerBaseController> {
 public:
  // Dialog tags.
  static constexpr int kTagRename = 2011;
  static constexpr int kTagOpen = 2012;
  static constexpr int kTagEmail = 2013;
  static constexpr int kTagCompress = 2014;
  static constexpr int kTagCopyTo = 2015;
  static constexpr int kTagCutTo = 2016;
  static constexpr int kTagCopy = 2017;
  static constexpr int kTagCut = 2018;
  static constexpr int kTagPaste = 2019;
  static constexpr int kTagDelete = 2020;
  static constexpr int kTagArchivePassword = 2023;
  static constexpr int kTagBookmark = 2024;
  static constexpr int kTagSubclass1 = 2025;
  static constexpr int kTagSubclass2 = 2026;
  static constexpr int kTagCompressPassword = 2028;
  static constexpr int kTagCompressNamePassword = 2029;
  static constexpr int kTagReplace = 80000;
  static constexpr int kTagArchiveSheet = 80001;
  static constexpr int kTagDeleteConfirm = 80002;
  static constexpr int kTagSheetNoEdit = 80003;
  static constexpr int kTagAddFileSheet = 80004;
  static constexpr int kTagSheet = 79999;
  // Button tags.
  static constexpr int kOrderDescendingTag = 9765;
  static constexpr int kOrderAscendingTag = 9766;
  static constexpr int kSelectAllTag = 8765;
  static constexpr int kDeselectAllTag = 8766;

  // A browser of `folderPath` (a full path; the document root when empty).
  explicit FileManagerBaseController(std::string folderPath = {});
  ~FileManagerBaseController() override;

  std::string className() const override { return "FileManagerBaseController"; }

  // The port this screen talks through; the process's one unless set.
  void setPort(std::shared_ptr<IScreenPort> port) { _port = std::move(port); }
  IScreenPort& port() const;
  std::shared_ptr<IScreenPort> portPointer() const;

  // Screen lifecycle.
  virtual void viewDidLoad();
  virtual void viewWillAppear();
  virtual void viewDidDisappear(bool stillInNavigation);

  FilePresenter& filePresenter();
  const FilePresenter& filePresenter() const;
  std::string fullFolderPath() const;
  std::string fullRelativePath() const override;
  bool isRoot() const;

  // IFilePresenter. reloadData hops to the main thread and waits.
  void reloadData() override;
  bool isOrderAsc() const override;
  void restoreSearchState(bool restore) override;

  // Title: the folder name, or "FileExplorer" at the root, with a count.
  void setCurrentTitle(std::optional<std::uint64_t> count);
  const std::string& currentTitle() const { return _title; }

  // Order.
  int orderButtonTag() const { return _orderButtonTag; }
  void setAscending(bool ascending);
  void orderAction();  // the direction button
  void segmentAction(int index);
  static int loadFileDisplayType(int index);
  void setDefaultAsc();

  // Listing: every path in the order the sections show them.
  std::vector<std::string> items() const;

  // The rows as a script or view names them: by display name.
  struct Row {
    std::string name;
    bool isFolder = false;
    std::uint64_t size = 0;
    bool selected = false;
  };
  virtual std::vector<Row> rows() const;
  // The path of the row named `name`, empty when there is none.
  virtual std::string pathOfRow(const std::string& name) const;
  // A tap, a long press and a check mark on the row named `name`; false
  // when there is no such row.
  virtual bool tapRow(const std::string& name);
  virtual bool holdRow(const std::string& name);
  virtual bool checkRow(const std::string& name);
  // The sheet a long press or the options button opens.
  virtual void openSheet() {}
  virtual void holdItem(const std::string& path) { (void)path; }
  virtual bool sheetChosen(int tag, const std::string& entry) {
    (void)tag;
    (void)entry;
    return false;
  }

  // Selection and edit mode.
  std::vector<std::string>& selectedRows();
  std::vector<std::string>& passwordRows();
  bool isEditing() const { return _editing; }
  virtual void setEditing(bool editing);
  void clearSelection();
  // The check mark of a row in edit mode, with the range mark.
  void handCellItem(const std::string& path);
  void allSelectFile();
  int selectAllButtonTag() const { return _selectAllTag; }
  bool isSelected(const std::string& path) const;
  // Whether a row shows its mark (a picker marks what it picked).
  virtual bool isRowMarked(const std::string& path) const { return isSelected(path); }
  std::optional<int> beginSelectedIndex() const { return _beginSelectedIndex; }

  // Tap on a row (not editing: open it, asking first for a locked folder).
  virtual void selectedCell(const std::string& path);
  // Opens the one selected item.
  void tableViewSelect();
  // The opener; the base loads from the server, its subclass does not.
  virtual void loadFilePath(const std::string& path);
  virtual void loadFilePath(const std::string& path, bool isBookMark, bool isLoadFromServer);
  // A browser of this same class for `path`.
  virtual std::shared_ptr<FileManagerBaseController> createFileManager(const std::string& path);
  void pushController(std::shared_ptr<ViewController> controller);

  // Password round.
  void getAllPasswordFilesBySelect();
  // Asks for the first locked path with `tag`; false when none is locked, so
  // the caller goes on at once.
  bool startPasswordRound(int tag);
  void openCheckPasswordAlert(const std::string& path, int tag);
  void passwordAnswered(int tag, int button, const std::string& password);
  static std::string getAlertRelativePath(const std::string& path);
  // What a confirmed dialog of `tag` does.
  virtual void performTagAction(int tag);
  // Tags 2025 and 2026 go to the subclass.
  virtual void checkAlertView(int tag, int button) {
    (void)tag;
    (void)button;
  }

  // Search.
  void searchChange(const std::string& text);
  void cancelSearch();
  bool isCurrentSearchResult() const { return !_searchText.empty(); }
  bool isCurrentSearching() const { return _isSearching; }
  void addToSearchResultOrReload(const std::vector<std::string>& added,
                                 const std::vector<std::string>& removed);
  virtual bool isSupportSearch() const { return true; }

  // Watcher.
  void loadWatcher();
  void clearWatcher();
  void directoryDidChange(DirectoryWatcher& watcher) override;

  // The one worker: a new one cancels the previous.
  void startThread(std::function<void()> work, bool animating,
                   CancellationToken token = CancellationToken());
  void cancelThread();
  bool isWorking() const { return _workers->running.load() > 0; }
  // Runs the main queue until no worker of this screen runs, or a dialog
  // waits when `stopWhen` says so.
  bool waitForWorker(std::function<bool()> stopWhen = {});
  bool isWorkerCancelled() const;

  // Files handed over by other applications: everything in "Inbox" moves
  // to "Imported" under free names, and the listing reloads.
  void handleOpenURL(const std::string& url);
  // The move itself; answers the new paths.
  static std::vector<std::string> moveInboxToImported();
  // Whether any browser on `stack` has a worker running.
  static bool isExistsExcutingInFileManagers(
      const std::vector<std::shared_ptr<ViewController>>& stack);

  std::string scrollToValue;
  int transferType = 0;  // 1 copy, 2 cut
  bool isAction = false;
  bool isDirectoryChange = false;

 protected:
  ScreenAlert makeAlert(int tag, const std::string& key, const std::string& text,
                        std::vector<std::string> buttons,
                        std::vector<ScreenField> fields = {}) const;
  ScreenSheet makeSheet(int tag, std::vector<std::string> rows) const;
  void alertMsg(const std::string& key, const std::string& text = {});
  void configureSections();
  void scrollToTableViewCell();
  void subDirectoryChange(const NotificationCenter::Notification& n);
  void directoryChange(const NotificationCenter::Notification& n);
  virtual void setToolbarItems();
  std::vector<NotificationCenter::Token> _observers;

  std::string _folderPath;
  std::shared_ptr<IScreenPort> _port;
  std::unique_ptr<FilePresenter> _filePresenter;
  std::unique_ptr<DirectoryWatcher> _docWatcher;
  std::string _title;
  int _orderButtonTag = kOrderAscendingTag;
  int _selectAllTag = kSelectAllTag;
  int _showItemstype = 0;
  bool _editing = false;
  std::optional<int> _beginSelectedIndex;
  std::optional<int> _endSelectedIndex;
  std::string _searchText;
  bool _isSearching = false;
  bool _loaded = false;
  bool _reloading = false;

  // Workers outlive a screen that goes while they run: they hold this.
  struct Workers {
    std::atomic<int> running{0};
    std::mutex mutex;
    CancellationToken current;
  };
  std::shared_ptr<Workers> _workers = std::make_shared<Workers>();
  std::mutex _objectLock;  // "under the object's lock"
};

}  // namespace harbor
