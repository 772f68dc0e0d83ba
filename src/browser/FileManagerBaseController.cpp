#include "browser/FileManagerBaseController.h"

#include <algorithm>
#include <any>
#include <chrono>
#include <filesystem>
#include <thread>

#include "filemanager/CommonUtil.h"
#include "filemanager/FileManagerUtil.h"
#include "filemanager/FileUtil.h"
#include "platform/Log.h"
#include "platform/MainQueue.h"
#include "platform/NotificationNames.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "platform/Unicode.h"

namespace harbor {

namespace {

std::string objectText(const std::any& object) {
  if (const auto* s = std::any_cast<std::string>(&object)) return *s;
  if (const auto* c = std::any_cast<const char*>(&object)) return *c ? *c : "";
  return {};
}

// Relative paths compare as folders: "/a/" and "/a" are the same, "" is "/".
bool isSameDirectory(std::string a, std::string b) {
  auto norm = [](std::string& s) {
    while (s.size() > 1 && s.back() == '/') s.pop_back();
    if (s.empty()) s = "/";
  };
  norm(a);
  norm(b);
  return a == b;
}

}  // namespace

FileManagerBaseController::FileManagerBaseController(std::string folderPath)
    : _folderPath(folderPath.empty() ? FileUtil::documentDirectory() : std::move(folderPath)) {
  while (_folderPath.size() > 1 && _folderPath.back() == '/') _folderPath.pop_back();
}

FileManagerBaseController::~FileManagerBaseController() {
  for (auto token : _observers) NotificationCenter::defaultCenter().removeObserver(token);
  _workers->current.cancel();
  if (_docWatcher) _docWatcher->invalidate();
}

IScreenPort& FileManagerBaseController::port() const {
  return *portPointer();
}

std::shared_ptr<IScreenPort> FileManagerBaseController::portPointer() const {
  return _port ? _port : ScreenPort::shared();
}

// ---- lifecycle ---------------------------------------------------------------------

void FileManagerBaseController::viewDidLoad() {
  if (_loaded) return;
  _loaded = true;
  _showItemstype = CommonUtil::getShowItemsOptionsValue();
  // The presenter is what a view reads; it starts as the preference says.
  filePresenter().setShowItemstype(_showItemstype);
  setCurrentTitle(std::nullopt);
  configureSections();
  setToolbarItems();
  passwordRows().clear();
  loadWatcher();
  std::weak_ptr<FileManagerBaseController> weak = weak_from_this();
  auto& center = NotificationCenter::defaultCenter();
  _observers.push_back(center.addObserver(notifications::HBFileDirectoryChangeToParentNotification,
                                          [weak](const auto& n) {
                                            if (auto self = weak.lock())
                                              self->subDirectoryChange(n);
                                          }));
  _observers.push_back(center.addObserver(notifications::HBFileDirectoryCurrentChangetNotification,
                                          [weak](const auto& n) {
                                            if (auto self = weak.lock()) self->directoryChange(n);
                                          }));
}

void FileManagerBaseController::viewWillAppear() {
  if (isAction) {
    isAction = false;
    setEditing(false);
  }
  setToolbarItems();
}

void FileManagerBaseController::viewDidDisappear(bool stillInNavigation) {
  if (!stillInNavigation && _isSearching) cancelSearch();
}

// ---- folder --------------------------------------------------------------------------

FilePresenter& FileManagerBaseController::filePresenter() {
  if (!_filePresenter) _filePresenter = FilePresenter::instanceWithPath(_folderPath, this);
  return *_filePresenter;
}

const FilePresenter& FileManagerBaseController::filePresenter() const {
  return const_cast<FileManagerBaseController*>(this)->filePresenter();
}

std::string FileManagerBaseController::fullFolderPath() const {
  return _folderPath;
}

std::string FileManagerBaseController::fullRelativePath() const {
  // A folder outside the documents (an archive member's temporary home) is
  // named in full, never taken for the root.
  if (!isPathAtOrBelow(_folderPath, FileUtil::documentDirectory())) return _folderPath;
  std::string relative = FileUtil::getDocumentRelativePath(_folderPath);
  return relative.empty() ? "/" : relative;
}

bool FileManagerBaseController::isRoot() const {
  return fullRelativePath() == "/";
}

void FileManagerBaseController::configureSections() {
  filePresenter().configureSections();
}

void FileManagerBaseController::reloadData() {
  MainQueue& main = MainQueue::shared();
  if (!main.isMainThread()) {
    std::weak_ptr<FileManagerBaseController> weak = weak_from_this();
    main.postAndWait([weak] {
      if (auto self = weak.lock()) self->reloadData();
    });
    return;
  }
  // A listing can announce itself to a parent that reloads in turn; one
  // reload at a time per screen keeps that from coming back here.
  if (_reloading) return;
  _reloading = true;
  isDirectoryChange = false;
  configureSections();
  setToolbarItems();
  // Before the scroll target is spent: the view scrolls to it.
  port().listingChanged();
  scrollToTableViewCell();
  _reloading = false;
}

void FileManagerBaseController::scrollToTableViewCell() {
  if (scrollToValue.empty()) return;
  for (const auto& section : filePresenter().currentItems()) {
    if (std::find(section.begin(), section.end(), scrollToValue) != section.end()) break;
  }
  scrollToValue.clear();
}

std::vector<std::string> FileManagerBaseController::items() const {
  std::vector<std::string> all;
  for (const auto& section : filePresenter().currentItems())
    all.insert(all.end(), section.begin(), section.end());
  return all;
}

std::vector<FileManagerBaseController::Row> FileManagerBaseController::rows() const {
  std::vector<Row> out;
  for (const auto& path : items()) {
    Row row;
    row.name = FileUtil::getFileName(path);
    row.isFolder = FileUtil::isDirectoryFilePath(path);
    row.size = row.isFolder ? 0 : FileUtil::getFileSize(path);
    row.selected = isRowMarked(path);
    out.push_back(std::move(row));
  }
  return out;
}

std::string FileManagerBaseController::pathOfRow(const std::string& name) const {
  for (const auto& path : items()) {
    if (FileUtil::getFileName(path) == name) return path;
  }
  return {};
}

bool FileManagerBaseController::tapRow(const std::string& name) {
  std::string path = pathOfRow(name);
  if (path.empty()) return false;
  selectedCell(path);
  return true;
}

bool FileManagerBaseController::holdRow(const std::string& name) {
  std::string path = pathOfRow(name);
  if (path.empty()) return false;
  holdItem(path);
  return true;
}

bool FileManagerBaseController::checkRow(const std::string& name) {
  std::string path = pathOfRow(name);
  if (path.empty()) return false;
  if (!_editing) setEditing(true);
  handCellItem(path);
  return true;
}

void FileManagerBaseController::restoreSearchState(bool restore) {
  MainQueue& main = MainQueue::shared();
  if (!main.isMainThread()) {
    std::weak_ptr<FileManagerBaseController> weak = weak_from_this();
    main.post([weak, restore] {
      if (auto self = weak.lock()) self->restoreSearchState(restore);
    });
    return;
  }
  _isSearching = !restore;
  port().setBusy(!restore);
  if (!restore) setEditing(false);
}

// ---- title and order ---------------------------------------------------------------

void FileManagerBaseController::setCurrentTitle(std::optional<std::uint64_t> count) {
  std::string name =
      isRoot() ? localizedString("FileExplorer") : FileUtil::getFileName(_folderPath);
  if (count) name += "(" + std::to_string(*count) + ")";
  _title = name;
  port().setTitle(_title);
}

bool FileManagerBaseController::isOrderAsc() const {
  return _orderButtonTag != kOrderDescendingTag;
}

void FileManagerBaseController::setAscending(bool ascending) {
  _orderButtonTag = ascending ? kOrderAscendingTag : kOrderDescendingTag;
}

void FileManagerBaseController::orderAction() {
  setAscending(!isOrderAsc());
  reloadData();
}

int FileManagerBaseController::loadFileDisplayType(int index) {
  return index >= 0 && index <= 3 ? index : 0;
}

void FileManagerBaseController::setDefaultAsc() {
  const int type = filePresenter().displayType();
  // Newest and largest first is what one wants from date and size.
  if (type == FilePresenter::kOrderDate || type == FilePresenter::kOrderSize) {
    if (isOrderAsc()) setAscending(false);
  } else {
    setAscending(true);
  }
}

void FileManagerBaseController::segmentAction(int index) {
  {
    std::lock_guard lock(_objectLock);
    const int type = loadFileDisplayType(index);
    filePresenter().setDisplayType(type);
    CommonUtil::setFileDisplayType(type);
    setDefaultAsc();
  }
  reloadData();
}

// ---- selection -----------------------------------------------------------------------

std::vector<std::string>& FileManagerBaseController::selectedRows() {
  return filePresenter().selectedRows();
}

std::vector<std::string>& FileManagerBaseController::passwordRows() {
  return filePresenter().passwordRows();
}

bool FileManagerBaseController::isSelected(const std::string& path) const {
  const auto& rows = const_cast<FileManagerBaseController*>(this)->selectedRows();
  return std::find(rows.begin(), rows.end(), path) != rows.end();
}

void FileManagerBaseController::clearSelection() {
  selectedRows().clear();
}

void FileManagerBaseController::setEditing(bool editing) {
  _editing = editing;
  if (!editing) {
    _selectAllTag = kSelectAllTag;
    clearSelection();
    _beginSelectedIndex.reset();
    _endSelectedIndex.reset();
  }
  setToolbarItems();
}

void FileManagerBaseController::handCellItem(const std::string& path) {
  std::vector<std::string> all = items();
  auto at = std::find(all.begin(), all.end(), path);
  if (at == all.end()) return;
  const int row = static_cast<int>(at - all.begin());
  auto& rows = selectedRows();
  // The first mark only anchors the range; the second decides it.
  if (!_beginSelectedIndex || *_beginSelectedIndex == row) {
    _beginSelectedIndex = _beginSelectedIndex ? std::nullopt : std::optional<int>(row);
    return;
  }
  _endSelectedIndex = row;
  const int from = std::min(*_beginSelectedIndex, row);
  const int to = std::max(*_beginSelectedIndex, row);
  // Any unmarked row in the range marks them all; a fully marked range clears.
  bool anyUnselected = false;
  for (int i = from; i <= to; ++i) anyUnselected |= !isSelected(all[static_cast<size_t>(i)]);
  for (int i = from; i <= to; ++i) {
    const std::string& p = all[static_cast<size_t>(i)];
    if (anyUnselected && !isSelected(p)) rows.push_back(p);
    if (!anyUnselected) std::erase(rows, p);
  }
  _beginSelectedIndex.reset();
  _endSelectedIndex.reset();
  setToolbarItems();
}

void FileManagerBaseController::allSelectFile() {
  std::lock_guard lock(_objectLock);
  if (!_editing) _editing = true;
  auto& rows = selectedRows();
  if (_selectAllTag == kSelectAllTag) {
    rows = items();
    _selectAllTag = kDeselectAllTag;
  } else {
    rows.clear();
    _selectAllTag = kSelectAllTag;
  }
  setToolbarItems();
}

void FileManagerBaseController::setToolbarItems() {}

// ---- tap and open -------------------------------------------------------------------

void FileManagerBaseController::selectedCell(const std::string& path) {
  if (_isSearching) return;
  if (_editing) {
    if (!isSelected(path)) selectedRows().push_back(path);
    setToolbarItems();
    return;
  }
  auto& rows = selectedRows();
  rows.assign(1, path);
  if (FileUtil::isDirectoryFilePath(path) && FileManagerUtil::isPasswordFile(path)) {
    passwordRows().assign(1, path);
    // No biometrics here: the password decides.
    openCheckPasswordAlert(path, kTagOpen);
    return;
  }
  tableViewSelect();
}

void FileManagerBaseController::tableViewSelect() {
  auto& rows = selectedRows();
  if (rows.size() != 1) return;
  std::string path = rows.front();
  loadFilePath(path);
}

void FileManagerBaseController::loadFilePath(const std::string& path) {
  loadFilePath(path, false, true);
}

void FileManagerBaseController::loadFilePath(const std::string& path, bool, bool) {
  if (FileUtil::isDirectoryFilePath(path)) {
    auto next = createFileManager(path);
    if (_filePresenter) next->filePresenter().setFileterType(_filePresenter->fileterType());
    pushController(next);
  }
  clearSelection();
}

std::shared_ptr<FileManagerBaseController> FileManagerBaseController::createFileManager(
    const std::string& path) {
  auto next = std::make_shared<FileManagerBaseController>(path);
  next->_port = _port;
  return next;
}

void FileManagerBaseController::pushController(std::shared_ptr<ViewController> controller) {
  auto browser = std::dynamic_pointer_cast<FileManagerBaseController>(controller);
  if (browser && !browser->_port) browser->_port = _port;
  port().push(std::move(controller));
  if (browser) browser->viewDidLoad();
}

// ---- password round ---------------------------------------------------------------

void FileManagerBaseController::getAllPasswordFilesBySelect() {
  auto& locked = passwordRows();
  locked.clear();
  for (const auto& path : selectedRows()) {
    for (auto& p : FileManagerUtil::getAllPasswordFileList(path)) {
      if (std::find(locked.begin(), locked.end(), p) == locked.end()) locked.push_back(p);
    }
  }
}

bool FileManagerBaseController::startPasswordRound(int tag) {
  getAllPasswordFilesBySelect();
  if (passwordRows().empty()) return false;
  openCheckPasswordAlert(passwordRows().front(), tag);
  return true;
}

std::string FileManagerBaseController::getAlertRelativePath(const std::string& path) {
  std::string relative = FileUtil::getDocumentRelativePath(path);
  // Long paths show their end, where the name is.
  if (relative.size() > 23) relative = ".." + relative.substr(relative.size() - 23);
  return relative;
}

void FileManagerBaseController::openCheckPasswordAlert(const std::string& path, int tag) {
  ScreenAlert alert = makeAlert(
      tag, "Password", "'" + getAlertRelativePath(path) + "' " + localizedString("Password"),
      {"Cancel", "OK"}, {{localizedString("Password"), ""}});
  std::weak_ptr<FileManagerBaseController> weak = weak_from_this();
  port().showAlert(alert, [weak, tag](int button, const std::vector<std::string>& fields) {
    if (auto self = weak.lock())
      self->passwordAnswered(tag, button, fields.empty() ? std::string() : fields.front());
  });
}

void FileManagerBaseController::passwordAnswered(int tag, int button, const std::string& password) {
  auto& locked = passwordRows();
  if (button != 1 || locked.empty()) {
    locked.clear();
    if (!_editing) clearSelection();
    return;
  }
  const std::string path = locked.front();
  if (!FileManagerUtil::isSamePasswordFile(path, password)) {
    alertMsg("PasswordIsError", "'" + FileUtil::getDocumentRelativePath(path) + "' " +
                                    localizedString("PasswordIsError"));
    locked.clear();
    if (tag == kTagOpen) clearSelection();
    return;
  }
  locked.erase(locked.begin());
  if (!locked.empty()) return openCheckPasswordAlert(locked.front(), tag);
  performTagAction(tag);
}

void FileManagerBaseController::performTagAction(int tag) {
  if (tag == kTagOpen) {
    if (selectedRows().size() == 1) tableViewSelect();
    return;
  }
  if (tag == kTagSubclass1 || tag == kTagSubclass2) checkAlertView(tag, 1);
}

// ---- search ---------------------------------------------------------------------------

void FileManagerBaseController::searchChange(const std::string& text) {
  if (!isSupportSearch()) return;
  cancelSearch();
  _searchText = text;
  restoreSearchState(false);
  std::weak_ptr<FileManagerBaseController> weak = weak_from_this();
  startThread(
      [weak, text] {
        if (auto self = weak.lock()) self->filePresenter().searchThread(text);
      },
      false);
}

void FileManagerBaseController::cancelSearch() {
  NotificationCenter::defaultCenter().post(notifications::FilePropertyCancelNotification);
  cancelThread();
  if (_isSearching) restoreSearchState(true);
}

void FileManagerBaseController::addToSearchResultOrReload(const std::vector<std::string>& added,
                                                          const std::vector<std::string>& removed) {
  MainQueue& main = MainQueue::shared();
  if (!main.isMainThread()) {
    std::weak_ptr<FileManagerBaseController> weak = weak_from_this();
    main.postAndWait([weak, added, removed] {
      if (auto self = weak.lock()) self->addToSearchResultOrReload(added, removed);
    });
    return;
  }
  if (_isSearching) return;
  if (!_searchText.empty() && filePresenter().isSearchResult()) {
    std::vector<std::string> hits = filePresenter().searchHits();
    for (const auto& gone : removed) std::erase(hits, gone);
    // "SELF CONTAINS[cd]": the name holds the text, ignoring case.
    const std::string needle = toLower(std::string_view(_searchText));
    for (const auto& path : added) {
      if (toLower(std::string_view(FileUtil::getFileName(path))).find(needle) !=
              std::string::npos &&
          std::find(hits.begin(), hits.end(), path) == hits.end())
        hits.push_back(path);
    }
    filePresenter().setSearchHits(std::move(hits));
  }
  reloadData();
}

// ---- watcher and notifications ------------------------------------------------

void FileManagerBaseController::loadWatcher() {
  if (_docWatcher && _docWatcher->isActive()) return;
  _docWatcher = DirectoryWatcher::watchFolderWithPath(_folderPath, this);
}

void FileManagerBaseController::clearWatcher() {
  if (_docWatcher) _docWatcher->invalidate();
  _docWatcher.reset();
}

void FileManagerBaseController::directoryDidChange(DirectoryWatcher&) {
  if (isWorking()) {
    isDirectoryChange = true;
    return;
  }
  reloadData();
}

void FileManagerBaseController::subDirectoryChange(const NotificationCenter::Notification& n) {
  if (isSameDirectory(objectText(n.object), fullRelativePath())) reloadData();
}

void FileManagerBaseController::directoryChange(const NotificationCenter::Notification& n) {
  std::string object = objectText(n.object);
  if (object.empty()) return;
  if (isSameDirectory(object, fullRelativePath()) || isSameDirectory(object, _folderPath))
    reloadData();
}

// ---- worker ---------------------------------------------------------------------------

void FileManagerBaseController::startThread(std::function<void()> work, bool animating,
                                            CancellationToken token) {
  {
    std::lock_guard lock(_workers->mutex);
    _workers->current.cancel();
    _workers->current = token;
  }
  if (animating) port().setBusy(true);
  auto workers = _workers;
  workers->running.fetch_add(1);
  std::thread([workers, token, work = std::move(work)] {
    {
      CurrentCancellationScope scope(token);
      work();
    }
    workers->running.fetch_sub(1);
    // Wake a main loop that waits for the worker to end.
    MainQueue::shared().post([] {});
  }).detach();
}

void FileManagerBaseController::cancelThread() {
  std::lock_guard lock(_workers->mutex);
  _workers->current.cancel();
}

bool FileManagerBaseController::isWorkerCancelled() const {
  return isCurrentThreadCancelled();
}

bool FileManagerBaseController::waitForWorker(std::function<bool()> stopWhen) {
  MainQueue& main = MainQueue::shared();
  bool done = main.runUntil([&] { return !isWorking() || (stopWhen && stopWhen()); },
                            std::chrono::hours(1));
  main.runPending();
  return done;
}

// ---- incoming files -------------------------------------------------------------------

std::vector<std::string> FileManagerBaseController::moveInboxToImported() {
  const std::string root = FileUtil::documentDirectory();
  const std::string inbox = root + "/Inbox";
  const std::string imported = root + "/Imported";
  FileUtil::createFolder(imported);
  std::vector<std::string> entries;
  CommonUtil::filesInCurrentFolder(inbox, entries, true, {});
  std::vector<std::string> moved;
  for (const auto& entry : entries) {
    const std::string name = FileUtil::getFileName(entry);
    const std::string target =
        FileUtil::isDirectoryFilePath(entry)
            ? FileUtil::getCreateFolderName(imported, name)
            : FileUtil::getCreateFileName(imported, FileUtil::getFileNameNoExtension(name),
                                          FileUtil::getFileExtension(name));
    std::error_code ec;
    std::filesystem::rename(entry, target, ec);
    // One entry that cannot move must not hold back the others.
    if (ec) {
      HB_LOG("FileManagerBaseController", "cannot move " + entry + ": " + ec.message());
      continue;
    }
    moved.push_back(target);
  }
  return moved;
}

void FileManagerBaseController::handleOpenURL(const std::string& url) {
  (void)url;  // what arrived is what the system put in Inbox
  auto moved = moveInboxToImported();
  if (!moved.empty()) scrollToValue = moved.back();
  reloadData();
}

bool FileManagerBaseController::isExistsExcutingInFileManagers(
    const std::vector<std::shared_ptr<ViewController>>& stack) {
  return std::any_of(stack.begin(), stack.end(), [](const auto& screen) {
    auto browser = std::dynamic_pointer_cast<FileManagerBaseController>(screen);
    return browser && browser->isWorking();
  });
}

// ---- helpers ---------------------------------------------------------------------------

ScreenAlert FileManagerBaseController::makeAlert(int tag, const std::string& key,
                                                 const std::string& text,
                                                 std::vector<std::string> buttons,
                                                 std::vector<ScreenField> fields) const {
  ScreenAlert alert;
  alert.tag = tag;
  alert.key = key;
  alert.text = text.empty() ? localizedString(key) : text;
  alert.buttons = std::move(buttons);
  alert.fields = std::move(fields);
  alert.screenClass = className();
  alert.screenPath = fullRelativePath();
  return alert;
}

ScreenSheet FileManagerBaseController::makeSheet(int tag, std::vector<std::string> rows) const {
  ScreenSheet sheet;
  sheet.tag = tag;
  sheet.rows = std::move(rows);
  sheet.screenClass = className();
  sheet.screenPath = fullRelativePath();
  return sheet;
}

void FileManagerBaseController::alertMsg(const std::string& key, const std::string& text) {
  std::string shown = text.empty() ? localizedString(key) : text;
  MainQueue& main = MainQueue::shared();
  if (main.isMainThread()) return port().showMessage(key, shown);
  auto p = portPointer();
  main.post([p, key, shown] { p->showMessage(key, shown); });
}

}  // namespace harbor
