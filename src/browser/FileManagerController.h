#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "archive/IArchive.h"
#include "browser/FileManagerBaseController.h"
#include "filemanager/IActionProgress.h"

namespace harbor {

class FilePropertyController;
class FileTransferController;

// The full browser: opening files by kind, the sheets, and the actions on a
// selection (copy, cut, paste, delete, compress, extract, create, rename),
// each on the screen's one worker with progress in the status line.
class FileManagerController : public FileManagerBaseController, public IActionProgress {
 public:
  explicit FileManagerController(std::string folderPath = {});
  ~FileManagerController() override;
  std::string className() const override { return "FileManagerController"; }

  void viewDidLoad() override;
  std::shared_ptr<FileManagerBaseController> createFileManager(const std::string& path) override;

  // ---- opening ----
  using FileManagerBaseController::loadFilePath;
  void loadFilePath(const std::string& path) override;
  void loadFilePath(const std::string& path, bool isBookMark, bool isLoadFromServer) override;
  void loadFilePathFromServer(const std::string& path);
  // The files of this listing whose lower-case extension is (or with
  // `isContainsInHash` false, is not) a key of `filter`.
  std::vector<std::string> loadPreviewFilesFilter(const ExtensionMap& filter, bool isContainsInHash,
                                                  bool isFullPath) const;
  void openWebViewController(const std::string& path, bool isBookMark, bool isLoadFromServer);

  // Hooks.
  virtual bool isSupportBookMarks() const { return false; }
  virtual bool isSupportShowIcons() const { return true; }
  virtual bool isSupportICloudDrive() const { return false; }
  // Whether this build has a cloud drive screen to open.
  virtual bool hasICloudDriveClass() const { return false; }
  // "Cloud Drive" opens the drive, "Import File From Cloud Drive" picks a
  // file from it into this folder.
  virtual void loadICloudDrive(bool forImport) { (void)forImport; }
  virtual bool isSupportPlayList() const { return false; }
  virtual bool isSupportViewMht() const { return false; }
  virtual bool isAlertPreferences(bool withSelection) const {
    (void)withSelection;
    return false;
  }
  virtual bool checkFileToLoaded(const std::string& path) {
    (void)path;
    return false;
  }
  virtual bool isAutoExtract() const { return true; }
  virtual void pasteActionEnd(bool cancelled) { (void)cancelled; }
  virtual std::string getCopyOrCutFilename(const std::string& path, const std::string& desFolder);
  virtual std::vector<ToolbarItem> createToolbarItems(bool editing);
  // Entries a subclass adds to a sheet, and what it does with them.
  virtual void addItemToActionSheet(std::vector<std::string>& rows, bool withSelection) {
    (void)rows;
    (void)withSelection;
  }
  virtual bool handleSheetEntry(const std::string& entry) {
    (void)entry;
    return false;
  }

  // ---- sheets ----
  std::vector<std::string> actionSheetRows() const;        // 79999
  std::vector<std::string> actionSheetNoEditRows() const;  // 80003
  virtual void alertActionSheet();
  virtual void alertActionSheetNoEdit();
  void alertIsUnzip();
  void alertAddFile();
  // The sheet a "sheet" request opens: with a selection or without.
  void openSheet() override;
  // Runs a sheet entry by its key, as if chosen; false when `tag`'s sheet
  // does not offer it.
  bool sheetChosen(int tag, const std::string& entry) override;
  // A long press on an item.
  void holdItem(const std::string& path) override;
  const std::vector<ToolbarItem>& toolbar() const { return _toolbar; }

  bool isCanPaste() const;
  bool isCanUnZip() const;
  bool isCanShare() const;
  bool isCanOpenIn() const;

  // ---- actions ----
  void transferSingle(bool isCopy);  // Copy, Cut
  void copySingle() { transferSingle(true); }
  void cutSingle() { transferSingle(false); }
  void moveToFolder(int type);  // Copy To 1, Cut To 2
  void pasteFile();
  void paste();
  void pasteAction();
  void pasteSingle();
  bool isCanReplae(const std::string& path, const std::string& desPath);
  bool copyOrCutFile(const std::string& path, const std::string& newPath, int pType);
  void deleteFileActionSheet();
  void deleteItems();  // a delete of the selection, with the password round
  void deleteAction();
  void deleteThread();
  void compressFile(const std::string& format, bool withPassword);
  void compressFileThread(const std::string& name, const std::string& password);
  void zipFiles(const std::string& format, const std::string& name, const std::string& password);
  std::string getDefaultZipName() const;
  void decompressFile(const std::string& path);
  void extractAs(const std::string& path, const std::string& destinationRelative);
  void browserArchiveFile(const std::string& path);
  void loadArchiveFileURL(const std::string& path);
  virtual bool checkPassword();
  void unzip();
  void unzipThread(const std::vector<ZipEntry::Ptr>& entries);
  void moveDestination(bool cancelled);
  std::string getZipEntryName(const ZipEntry& entry) const;
  bool CreateFile(const std::string& name, const std::string& content, int addType,
                  const std::string& oldName);
  bool renameFile(const std::string& newName, const std::string& oldName,
                  const std::string& password, bool isPassword, const std::string& directory);
  bool createFolder(const std::string& name, const std::string& password, Error* error);
  void openRenameController();
  // The property screen of the one selected item, or of this folder.
  std::shared_ptr<FilePropertyController> showProperty();
  void alertCreateFolder();
  void performTagAction(int tag) override;

  // A folder for work that must not show in `destination` until it is whole.
  static std::string makeHiddenWorkFolder(const std::string& destination);

  // The application went to the background: thumbnails made for the list
  // are dropped, unless an image viewer in front still shows them.
  void enterBackground();
  // Set by the window: whether an image viewer is the front screen.
  static void setImageViewerInFront(std::function<bool()> query);

  // ---- progress ----
  void progressFinished(std::uint64_t units) override;
  void progressUpdateCurrentSize(std::uint64_t position) override;
  std::uint64_t currentSize() const override { return _currentSize.load(); }
  std::uint64_t totalSize() const override { return _totalSize.load(); }
  void setTotalSize(std::uint64_t total) override;
  void setTotalSizeWithNum(std::uint64_t total) { setTotalSize(total); }
  void updateTitle(const std::string& title) override;
  void showStatus();
  // The next worker cancels itself once progress reaches `units`.
  void setCancelAfter(std::optional<std::uint64_t> units) { _cancelAfter = units; }
  std::string lastStatus() const;

  // Makes the reader of an archive; tests put in their own.
  using ReaderMaker = std::function<std::shared_ptr<IArchive>(const std::string& path)>;
  static void setReaderMaker(ReaderMaker maker);

  // The extraction in progress.
  std::shared_ptr<IArchive> archiveDelegate;
  std::string _destination;
  std::string unzipDestination;
  std::string _password;
  std::string correctPwd;
  std::vector<std::string> _textFileFormatsInfo;
  std::string actionObject;

 protected:
  void setToolbarItems() override;
  void showSheetAndHandle(const ScreenSheet& sheet);
  // Runs `work` on the worker, clearing a pending self-cancel afterwards.
  void startAction(std::function<void(FileManagerController&)> work);
  void finishBusy();
  // Asks the archive password on the main queue and waits (tag 2023).
  std::optional<std::string> askArchivePassword();
  void readArchive();
  void initCheckPassword();
  void archive(const std::string& path);
  void autoUnArchive();
  virtual void unzipFinished();
  // The archive browser keeps its reader after an extraction.
  virtual bool keepsArchive() const { return false; }
  void releaseArchive() {
    if (!keepsArchive()) archiveDelegate.reset();
  }
  void resetDestination();
  std::string extractDestination() const;
  void setStatusText(const std::string& text);

  std::vector<ToolbarItem> _toolbar;
  std::atomic<std::uint64_t> _currentSize{0};
  std::atomic<std::uint64_t> _totalSize{0};
  std::atomic<int> _shownPercent{-1};
  std::optional<std::uint64_t> _cancelAfter;
  // The running action's self-cancel: progress arrives on workers while the
  // main thread starts the next action, so the pair is swapped under a lock;
  // the threshold is also kept atomic for the lock-free common case.
  void cancelIfReached(std::uint64_t units);
  mutable std::mutex _selfCancelMutex;
  std::atomic<std::uint64_t> _workerCancelAt{UINT64_MAX};
  CancellationToken _workerToken;
  mutable std::mutex _statusMutex;
  std::string _statusTitle;
  std::string _lastStatus;
  std::optional<bool> _isEncrypted;
  std::vector<ZipEntry::Ptr> _extractEntries;
  std::string _archiveFormat = "zip";
  bool _retryPassword = false;
  bool _passwordAbandoned = false;
  std::atomic<int> _failures{0};
};

}  // namespace harbor
