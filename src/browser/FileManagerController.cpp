#include "browser/FileManagerController.h"

#include <algorithm>

#include "browser/BrowserSupport.h"
#include "browser/FilePropertyController.h"
#include "browser/FileTransferController.h"
#include "browser/ViewArchiveController.h"
#include "filemanager/CommonUtil.h"
#include "filemanager/FileManagerUtil.h"
#include "filemanager/FileUtil.h"
#include "filemanager/USupportFile.h"
#include "platform/MainQueue.h"
#include "platform/NotificationNames.h"
#include "platform/Strings.h"
#include "platform/Unicode.h"
#include "syntax/CodeFactory.h"

namespace harbor {

FileManagerController::FileManagerController(std::string folderPath)
    : FileManagerBaseController(std::move(folderPath)) {}

FileManagerController::~FileManagerController() = default;

void FileManagerController::viewDidLoad() {
  if (_loaded) return;
  FileManagerBaseController::viewDidLoad();
  // Incoming files wait in Inbox, which the user may look at but not change.
  if (equalsIgnoreCase(FileUtil::getFileName(_folderPath), "inbox") &&
      FileUtil::getFileDirectory(_folderPath) == FileUtil::documentDirectory()) {
    _title = _title + "(" + localizedString("Nopermission") + ")";
    port().setTitle(_title);
  }
  _textFileFormatsInfo = CodeFactory::createTextFileFormat();
  for (const auto& [extension, item] : CodeFactory::customExtensions()) {
    (void)item;
    if (std::find(_textFileFormatsInfo.begin(), _textFileFormatsInfo.end(), extension) ==
        _textFileFormatsInfo.end()) {
      auto at = _textFileFormatsInfo.size() >= 2 ? _textFileFormatsInfo.begin() + 2
                                                 : _textFileFormatsInfo.end();
      _textFileFormatsInfo.insert(at, extension);
    }
  }
  std::weak_ptr<FileManagerBaseController> weak = weak_from_this();
  _observers.push_back(NotificationCenter::defaultCenter().addObserver(
      notifications::ExtractFilesFinishedNotification, [weak](const auto& n) {
        auto self = weak.lock();
        if (!self) return;
        const auto* path = std::any_cast<std::string>(&n.object);
        if (path && FileUtil::getFileDirectory(*path) == self->fullFolderPath()) {
          self->scrollToValue = *path;
          self->reloadData();
        }
      }));
}

std::shared_ptr<FileManagerBaseController> FileManagerController::createFileManager(
    const std::string& path) {
  auto next = std::make_shared<FileManagerController>(path);
  next->setPort(_port);
  return next;
}

// ---- opening ------------------------------------------------------------------------

void FileManagerController::loadFilePath(const std::string& path) {
  loadFilePath(path, false, false);
}

void FileManagerController::loadFilePathFromServer(const std::string& path) {
  loadFilePath(path, false, true);
}

std::vector<std::string> FileManagerController::loadPreviewFilesFilter(const ExtensionMap& filter,
                                                                       bool isContainsInHash,
                                                                       bool isFullPath) const {
  std::vector<std::string> found;
  for (const auto& path : items()) {
    if (FileUtil::isDirectoryFilePath(path)) continue;
    const bool listed = filter.count(USupportFile::lowerExtension(path)) > 0;
    if (listed == isContainsInHash)
      found.push_back(isFullPath ? path : FileUtil::getFileName(path));
  }
  return found;
}

namespace {

// The kinds that open somewhere other than the web preview.
const ExtensionMap& supportExtensions() {
  static const ExtensionMap set = [] {
    ExtensionMap all;
    for (const ExtensionMap* part :
         {&USupportFile::imageExtension(), &USupportFile::mediasExtension(),
          &USupportFile::musicTypesExtension(), &USupportFile::archiveExtension(true)})
      all.insert(part->begin(), part->end());
    for (const char* ext : {"epub", "pdf", "vcf"}) all.emplace(ext, "");
    return all;
  }();
  return set;
}

std::size_t indexOf(const std::vector<std::string>& list, const std::string& path) {
  auto at = std::find(list.begin(), list.end(), path);
  return at == list.end() ? 0 : static_cast<std::size_t>(at - list.begin());
}

}  // namespace

void FileManagerController::loadFilePath(const std::string& path, bool isBookMark,
                                         bool isLoadFromServer) {
  if (FileUtil::isDirectoryFileType(path) || FileUtil::isDirectoryFilePath(path)) {
    return FileManagerBaseController::loadFilePath(path, isBookMark, isLoadFromServer);
  }
  clearSelection();
  const std::string ext = USupportFile::lowerExtension(path);
  auto open = [&](ScreenRoute route, std::vector<std::string> files) {
    std::size_t current = indexOf(files, path);
    if (files.empty()) files.push_back(path);
    port().openFiles(route, files, current);
  };
  if (USupportFile::isSystemPreviewExtension(ext)) {
    if (isLoadFromServer) return open(ScreenRoute::Image, {path});
    return open(ScreenRoute::Image,
                loadPreviewFilesFilter(USupportFile::imageExtension(), true, true));
  }
  if (USupportFile::isMusicMediaExtension(ext))
    return open(isSupportPlayList() ? ScreenRoute::Music : ScreenRoute::Media, {path});
  if (USupportFile::isSysMusicMediaExtension(ext)) return open(ScreenRoute::Media, {path});
  if (USupportFile::isMoveMediaWithExtension(ext)) {
    if (isLoadFromServer) return open(ScreenRoute::Media, {path});
    return open(ScreenRoute::Media,
                loadPreviewFilesFilter(USupportFile::movieExtension(), true, true));
  }
  if (USupportFile::isArchiveWithExteinsion(ext)) {
    selectedRows().assign(1, path);
    return alertIsUnzip();
  }
  if (ext == "epub") return open(ScreenRoute::Epub, {path});
  if (ext == "pdf") return open(ScreenRoute::Pdf, {path});
  if (ext == "vcf") return open(ScreenRoute::Vcf, {path});
  if ((ext == "mht" || ext == "mhtml") && isSupportViewMht()) return open(ScreenRoute::Mht, {path});
  if (ext != "mht" && ext != "mhtml") {
    if (CodeFactory::isSupportTextFormat(ext, path)) return open(ScreenRoute::Editor, {path});
    std::string mime = MimeTypes::getEmailMimeType(path);
    if (!mime.empty() && mime.find("image") == std::string::npos && mime == "text/plain")
      return open(ScreenRoute::Editor, {path});
  }
  if (checkFileToLoaded(path)) return;
  openWebViewController(path, isBookMark, isLoadFromServer);
}

void FileManagerController::openWebViewController(const std::string& path, bool isBookMark,
                                                  bool isLoadFromServer) {
  if (isBookMark || isLoadFromServer) {
    port().openFiles(ScreenRoute::Web, {path}, 0);
    return;
  }
  std::vector<std::string> pages = loadPreviewFilesFilter(supportExtensions(), false, true);
  auto at = std::find(pages.begin(), pages.end(), path);
  if (at == pages.end()) return;
  port().openFiles(ScreenRoute::Web, pages, static_cast<std::size_t>(at - pages.begin()));
}

// ---- toolbar and sheets ------------------------------------------------------------

std::vector<ToolbarItem> FileManagerController::createToolbarItems(bool editing) {
  const bool enabled = !isWorking();
  std::vector<ToolbarItem> bar;
  if (editing) {
    bar.push_back({"ACTION_ITEM", "Options", enabled, 0});
    bar.push_back({"ALLSELECT_ITEM", _selectAllTag == kSelectAllTag ? "Select All" : "Deselect All",
                   enabled, _selectAllTag});
    bar.push_back({"ZIP_ITEM", "Compress files", enabled, 0});
    bar.push_back({"DELETE_ITEM", "Delete", enabled, 0});
  } else {
    bar.push_back({"ADDFILE_ITEM", "CreateFolder", enabled, 0});
    bar.push_back({"ACTION_ITEM_NOEDIT", "Options", enabled, 0});
    bar.push_back(
        {"ORDER_ITEM", isOrderAsc() ? "Ascending" : "Descending", enabled, _orderButtonTag});
  }
  bar.push_back({"PASTE_ITEM", "Paste", enabled && isCanPaste(), 0});
  return bar;
}

void FileManagerController::setToolbarItems() {
  auto bar = createToolbarItems(_editing && !selectedRows().empty());
  bool same = bar.size() == _toolbar.size();
  for (std::size_t i = 0; same && i < bar.size(); ++i)
    same = bar[i].key == _toolbar[i].key && bar[i].title == _toolbar[i].title &&
           bar[i].enabled == _toolbar[i].enabled;
  if (same) return;
  _toolbar = std::move(bar);
  port().setToolbar(_toolbar);
}

bool FileManagerController::isCanPaste() const {
  bool isCopy = false;
  if (TransferClipboard::getCopySystemPath(isCopy)) return true;
  auto board = IPasteboard::shared();
  return board->string().has_value() || !board->images().empty();
}

bool FileManagerController::isCanUnZip() const {
  const auto& rows = const_cast<FileManagerController*>(this)->selectedRows();
  if (rows.empty()) return false;
  for (const auto& path : rows) {
    if (!FileUtil::isReguralFilePath(path) || USupportFile::lowerExtension(path) != "zip")
      return false;
  }
  return true;
}

bool FileManagerController::isCanShare() const {
  const auto& rows = const_cast<FileManagerController*>(this)->selectedRows();
  if (rows.empty()) return false;
  return std::all_of(rows.begin(), rows.end(),
                     [](const std::string& p) { return !FileUtil::isDirectoryFilePath(p); });
}

bool FileManagerController::isCanOpenIn() const {
  const auto& rows = const_cast<FileManagerController*>(this)->selectedRows();
  return rows.size() == 1 && !FileUtil::isDirectoryFilePath(rows.front());
}

std::vector<std::string> FileManagerController::actionSheetRows() const {
  std::vector<std::string> rows{"Copy", "Copy To...", "Cut", "Cut To..."};
  if (isCanPaste()) rows.push_back("Paste");
  rows.push_back("Rename");
  if (!_editing) rows.push_back("Delete");
  if (!isCanUnZip()) {
    rows.insert(rows.end(),
                {"Zip", "Password protected zip", "7z Archive", "Password protected 7z"});
  }
  if (isCanOpenIn() && port().supportsRoute(ScreenRoute::HandOver)) rows.push_back("Open In...");
  if (const_cast<FileManagerController*>(this)->selectedRows().size() == 1)
    rows.push_back("Property");
  if (isAlertPreferences(true)) rows.push_back("Preferences");
  const_cast<FileManagerController*>(this)->addItemToActionSheet(rows, true);
  rows.push_back("Cancel");
  return rows;
}

std::vector<std::string> FileManagerController::actionSheetNoEditRows() const {
  std::vector<std::string> rows{"Property"};
  if (isSupportShowIcons())
    rows.push_back(_showItemstype == FilePresenter::kShowIcons ? "Show items as list"
                                                               : "Show items as icons");
  if (isSupportICloudDrive() && hasICloudDriveClass())
    rows.insert(rows.end(), {"Cloud Drive", "Import File From Cloud Drive"});
  if (isAlertPreferences(false)) rows.push_back("Preferences");
  const_cast<FileManagerController*>(this)->addItemToActionSheet(rows, false);
  rows.push_back("Cancel");
  return rows;
}

void FileManagerController::showSheetAndHandle(const ScreenSheet& sheet) {
  std::weak_ptr<FileManagerBaseController> weak = weak_from_this();
  auto rows = sheet.rows;
  const int tag = sheet.tag;
  port().showSheet(sheet, [weak, rows, tag](int row) {
    auto self = std::static_pointer_cast<FileManagerController>(weak.lock());
    if (!self || row < 0 || static_cast<std::size_t>(row) >= rows.size()) return;
    self->sheetChosen(tag, rows[static_cast<std::size_t>(row)]);
  });
}

void FileManagerController::alertActionSheet() {
  showSheetAndHandle(makeSheet(kTagSheet, actionSheetRows()));
}

void FileManagerController::alertActionSheetNoEdit() {
  showSheetAndHandle(makeSheet(kTagSheetNoEdit, actionSheetNoEditRows()));
}

void FileManagerController::alertIsUnzip() {
  showSheetAndHandle(
      makeSheet(kTagArchiveSheet, {"Extract", "Extract As...", "View File", "Cancel"}));
}

void FileManagerController::alertAddFile() {
  std::vector<std::string> rows;
  for (const auto& ext : _textFileFormatsInfo) rows.push_back(ext + " " + localizedString("File"));
  rows.push_back("Cancel");
  showSheetAndHandle(makeSheet(kTagAddFileSheet, rows));
}

void FileManagerController::openSheet() {
  if (!selectedRows().empty()) return alertActionSheet();
  alertActionSheetNoEdit();
}

void FileManagerController::holdItem(const std::string& path) {
  if (_isSearching) return;
  // Outside edit mode a long press acts on that one item.
  if (!_editing) {
    selectedRows().assign(1, path);
  } else if (!isSelected(path)) {
    selectedRows().push_back(path);
  }
  alertActionSheet();
}

bool FileManagerController::sheetChosen(int tag, const std::string& entry) {
  std::vector<std::string> offered;
  switch (tag) {
    case kTagSheet:
      offered = actionSheetRows();
      break;
    case kTagSheetNoEdit:
      offered = actionSheetNoEditRows();
      break;
    case kTagArchiveSheet:
      offered = {"Extract", "Extract As...", "View File", "Cancel"};
      break;
    default:
      return false;
  }
  if (std::find(offered.begin(), offered.end(), entry) == offered.end()) return false;
  if (entry == "Cancel") return true;
  if (handleSheetEntry(entry)) return true;
  if (entry == "Copy") {
    if (!startPasswordRound(kTagCopy)) copySingle();
  } else if (entry == "Cut") {
    if (!startPasswordRound(kTagCut)) cutSingle();
  } else if (entry == "Copy To...") {
    if (!startPasswordRound(kTagCopyTo)) moveToFolder(1);
  } else if (entry == "Cut To...") {
    if (!startPasswordRound(kTagCutTo)) moveToFolder(2);
  } else if (entry == "Paste") {
    pasteFile();
  } else if (entry == "Rename") {
    if (!startPasswordRound(kTagRename)) openRenameController();
  } else if (entry == "Delete") {
    deleteFileActionSheet();
  } else if (entry == "Zip" || entry == "7z Archive") {
    _archiveFormat = entry == "Zip" ? "zip" : "7z";
    if (!startPasswordRound(kTagCompress)) compressFile(_archiveFormat, false);
  } else if (entry == "Password protected zip" || entry == "Password protected 7z") {
    _archiveFormat = entry == "Password protected zip" ? "zip" : "7z";
    if (!startPasswordRound(kTagCompressPassword)) compressFile(_archiveFormat, true);
  } else if (entry == "Open In...") {
    port().openFiles(ScreenRoute::HandOver, {selectedRows().front()}, 0);
  } else if (entry == "Property") {
    showProperty();
  } else if (entry == "Cloud Drive" || entry == "Import File From Cloud Drive") {
    loadICloudDrive(entry != "Cloud Drive");
  } else if (entry == "Show items as list" || entry == "Show items as icons") {
    _showItemstype =
        entry == "Show items as list" ? FilePresenter::kShowList : FilePresenter::kShowIcons;
    filePresenter().setShowItemstype(_showItemstype);
    reloadData();
  } else if (entry == "Extract") {
    if (!selectedRows().empty()) decompressFile(selectedRows().front());
  } else if (entry == "Extract As...") {
    if (selectedRows().empty()) return true;
    auto picker = std::make_shared<PickDirectoryController>(FileUtil::documentDirectory());
    std::weak_ptr<FileManagerBaseController> weak = weak_from_this();
    std::string archivePath = selectedRows().front();
    picker->onSelectDirectory = [weak, archivePath](const std::string& relative) {
      if (auto self = std::static_pointer_cast<FileManagerController>(weak.lock()))
        self->extractAs(archivePath, relative);
    };
    pushController(picker);
  } else if (entry == "View File") {
    if (!selectedRows().empty()) browserArchiveFile(selectedRows().front());
  }
  return true;
}

namespace {
std::function<bool()>& imageViewerInFront() {
  static std::function<bool()> query;
  return query;
}
}  // namespace

void FileManagerController::setImageViewerInFront(std::function<bool()> query) {
  imageViewerInFront() = std::move(query);
}

void FileManagerController::enterBackground() {
  if (auto& query = imageViewerInFront(); query && query()) return;
  FileManagerUtil::removeFileImageLocalCache();
}

std::shared_ptr<FilePropertyController> FileManagerController::showProperty() {
  const std::string path = selectedRows().size() == 1 ? selectedRows().front() : _folderPath;
  auto screen = FilePropertyController::instanceWithPath(path);
  screen->setPort(portPointer());
  port().push(screen);
  screen->viewDidLoad();
  return screen;
}

// ---- dialog tags ----------------------------------------------------------------------

void FileManagerController::performTagAction(int tag) {
  switch (tag) {
    case kTagRename:
      return openRenameController();
    case kTagCompress:
      return compressFile(_archiveFormat, false);
    case kTagCompressPassword:
      return compressFile(_archiveFormat, true);
    case kTagCopyTo:
      return moveToFolder(1);
    case kTagCutTo:
      return moveToFolder(2);
    case kTagCopy:
      return copySingle();
    case kTagCut:
      return cutSingle();
    case kTagPaste:
      return pasteAction();
    case kTagDelete:
      return deleteAction();
    default:
      return FileManagerBaseController::performTagAction(tag);
  }
}

// ---- progress -----------------------------------------------------------------------

void FileManagerController::setTotalSize(std::uint64_t total) {
  _totalSize = total;
  _currentSize = 0;
  _shownPercent = -1;
}

void FileManagerController::progressFinished(std::uint64_t units) {
  cancelIfReached(_currentSize += units);
  showStatus();
}

void FileManagerController::progressUpdateCurrentSize(std::uint64_t position) {
  _currentSize = position;
  cancelIfReached(position);
  showStatus();
}

void FileManagerController::cancelIfReached(std::uint64_t units) {
  if (units < _workerCancelAt.load(std::memory_order_relaxed)) return;
  std::lock_guard lock(_selfCancelMutex);
  if (units >= _workerCancelAt.load()) _workerToken.cancel();
}

void FileManagerController::updateTitle(const std::string& title) {
  {
    std::lock_guard lock(_statusMutex);
    _statusTitle = title;
  }
  auto p = portPointer();
  MainQueue::shared().post([p, title] { p->setStatus(title); });
}

void FileManagerController::showStatus() {
  const std::uint64_t total = _totalSize.load();
  const std::uint64_t current = std::min(_currentSize.load(), total);
  // Tenths are enough for a status line and keep the main queue free.
  const int percent = total ? static_cast<int>(current * 10 / total) * 10 : 0;
  if (_shownPercent.exchange(percent) == percent) return;
  std::string text;
  {
    std::lock_guard lock(_statusMutex);
    text = _statusTitle + " " + std::to_string(percent) + "%";
  }
  auto p = portPointer();
  double fraction = total ? static_cast<double>(current) / static_cast<double>(total) : 0;
  MainQueue::shared().post([p, text, fraction] {
    p->setProgress(fraction);
    p->setStatus(text);
  });
}

std::string FileManagerController::lastStatus() const {
  std::lock_guard lock(_statusMutex);
  return _lastStatus;
}

void FileManagerController::setStatusText(const std::string& text) {
  {
    std::lock_guard lock(_statusMutex);
    _lastStatus = text;
  }
  auto p = portPointer();
  MainQueue::shared().post([p, text] { p->setStatus(text); });
}

void FileManagerController::startAction(std::function<void(FileManagerController&)> work) {
  auto self = std::static_pointer_cast<FileManagerController>(shared_from_this());
  _failures = 0;
  // The worker's token is kept so that a self-cancel reaches what it polls;
  // the thread gets its own copy, never this field.
  CancellationToken token;
  {
    std::lock_guard lock(_selfCancelMutex);
    _workerToken = token;
    _workerCancelAt = _cancelAfter.value_or(UINT64_MAX);
  }
  _cancelAfter.reset();
  startThread([self, work = std::move(work)] { work(*self); }, true, token);
}

void FileManagerController::finishBusy() {
  std::weak_ptr<FileManagerBaseController> weak = weak_from_this();
  MainQueue::shared().post([weak] {
    auto self = weak.lock();
    if (!self) return;
    self->port().setBusy(false);
    self->reloadData();
  });
}

}  // namespace harbor
