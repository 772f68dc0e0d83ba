#include "browser/FileTransferController.h"

#include <algorithm>

#include "filemanager/FileManagerUtil.h"
#include "filemanager/FileUtil.h"
#include "platform/MainQueue.h"
#include "platform/Strings.h"

namespace harbor {

// ---- FileTransferController ------------------------------------------------------------

FileTransferController::FileTransferController(std::string folderPath)
    : FileManagerController(std::move(folderPath)) {}

std::string FileTransferController::prompt() const {
  return localizedString(transferType == 2 ? "Moving files" : "Copying files") + " " +
         localizedString("From") + " " + FileUtil::getFileName(sourceFolder);
}

void FileTransferController::viewDidLoad() {
  if (_loaded) return;
  FileManagerController::viewDidLoad();
  port().setStatus(prompt());
}

std::shared_ptr<FileManagerBaseController> FileTransferController::createFileManager(
    const std::string& path) {
  auto next = std::make_shared<FileTransferController>(path);
  next->setPort(_port);
  next->transferType = transferType;
  next->sourceFolder = sourceFolder;
  next->onTransferComplete = onTransferComplete;
  next->depth = depth + 1;
  return next;
}

std::vector<ToolbarItem> FileTransferController::createToolbarItems(bool) {
  const bool enabled = !isWorking();
  return {{"ORDER_ITEM", isOrderAsc() ? "Ascending" : "Descending", enabled, _orderButtonTag},
          {"ADDFILE_ITEM", "CreateFolder", enabled, 0},
          {"PASTE_ITEM", "Paste", enabled, 0}};
}

void FileTransferController::openSheet() {
  showSheetAndHandle(makeSheet(kTagSheetNoEdit, {"Paste", "CreateFolder", "Cancel"}));
}

bool FileTransferController::sheetChosen(int tag, const std::string& entry) {
  if (tag != kTagSheetNoEdit) return false;
  if (entry == "Paste") {
    saveCategory();
  } else if (entry == "CreateFolder") {
    alertCreateFolder();
  } else if (entry != "Cancel") {
    return false;
  }
  return true;
}

void FileTransferController::pasteActionEnd(bool cancelled) {
  (void)cancelled;
  std::weak_ptr<FileManagerBaseController> weak = weak_from_this();
  MainQueue::shared().post([weak] {
    auto self = std::static_pointer_cast<FileTransferController>(weak.lock());
    if (!self) return;
    if (self->onTransferComplete) self->onTransferComplete();
    for (int i = 0; i < self->depth; ++i) self->port().pop();
  });
}

// ---- pickers -------------------------------------------------------------------------------

PickFileBaseDirectory::PickFileBaseDirectory(std::string folderPath)
    : FileManagerController(std::move(folderPath)) {}

void PickFileBaseDirectory::viewDidLoad() {
  if (_loaded) return;
  FileManagerController::viewDidLoad();
  _showItemstype = FilePresenter::kShowList;
  filePresenter().setShowItemstype(FilePresenter::kShowList);
}

bool PickFileBaseDirectory::isRowMarked(const std::string& path) const {
  const auto& rows = pickDelegate->selectedRows;
  return std::find(rows.begin(), rows.end(), path) != rows.end();
}

std::vector<ToolbarItem> PickFileBaseDirectory::createToolbarItems(bool) {
  std::vector<ToolbarItem> bar{
      {"ORDER_ITEM", isOrderAsc() ? "Ascending" : "Descending", true, _orderButtonTag}};
  if (canSave()) bar.push_back({"DONE_ITEM", "Done", true, 0});
  return bar;
}

void PickFileBaseDirectory::openSheet() {
  std::vector<std::string> entries;
  if (canSave()) entries.push_back("Done");
  entries.push_back("Cancel");
  showSheetAndHandle(makeSheet(kTagSheetNoEdit, entries));
}

bool PickFileBaseDirectory::sheetChosen(int tag, const std::string& entry) {
  if (tag != kTagSheetNoEdit) return false;
  if (entry == "Done" && canSave()) {
    saveCategory();
    return true;
  }
  if (entry == "Cancel") {
    cancelPick();
    return true;
  }
  return false;
}

void PickFileBaseDirectory::closePicker() {
  for (int i = 0; i < depth; ++i) port().pop();
}

void PickFileBaseDirectory::askFolderPassword(const std::string& path, std::function<void()> then) {
  ScreenAlert alert =
      makeAlert(kTagPickFolderPassword, "Password",
                "'" + getAlertRelativePath(path) + "' " + localizedString("Password"),
                {"Cancel", "OK"}, {{localizedString("Password"), ""}});
  std::weak_ptr<FileManagerBaseController> weak = weak_from_this();
  port().showAlert(alert, [weak, path, then](int button, const std::vector<std::string>& fields) {
    auto self = weak.lock();
    if (!self || button != 1) return;
    if (!FileManagerUtil::isSamePasswordFile(path, fields.empty() ? "" : fields.front())) {
      self->port().showMessage("PasswordIsError", "'" + FileUtil::getDocumentRelativePath(path) +
                                                      "' " + localizedString("PasswordIsError"));
      return;
    }
    then();
  });
}

void PickFileBaseDirectory::selectedCell(const std::string& path) {
  if (!FileUtil::isDirectoryFilePath(path)) return fileTapped(path);
  if (FileManagerUtil::isPasswordFile(path)) {
    std::weak_ptr<FileManagerBaseController> weak = weak_from_this();
    return askFolderPassword(path, [weak, path] {
      if (auto self = std::static_pointer_cast<PickFileBaseDirectory>(weak.lock()))
        self->folderTapped(path);
    });
  }
  folderTapped(path);
}

std::shared_ptr<FileManagerBaseController> PickFileBaseDirectory::createFileManager(
    const std::string& path) {
  auto next = makeSame(path);
  next->setPort(_port);
  next->pickDelegate = pickDelegate;
  next->pickTag = pickTag;
  next->depth = depth + 1;
  next->filePresenter().setFileterType(filePresenter().fileterType());
  return next;
}

void PickFileBaseDirectory::pushSelfController(const std::string& path) {
  pushController(createFileManager(path));
}

// PickDirectoryController
std::shared_ptr<PickFileBaseDirectory> PickDirectoryController::makeSame(
    const std::string& path) const {
  auto next = std::make_shared<PickDirectoryController>(path);
  next->onSelectDirectory = onSelectDirectory;
  return next;
}

void PickDirectoryController::saveCategory() {
  const std::string relative = fullRelativePath();
  if (pickDelegate->selectDirectory) pickDelegate->selectDirectory(relative, pickTag);
  auto chosen = onSelectDirectory;
  closePicker();
  if (chosen) chosen(relative);
}

// PickFileOnlyController
std::shared_ptr<PickFileBaseDirectory> PickFileOnlyController::makeSame(
    const std::string& path) const {
  auto next = std::make_shared<PickFileOnlyController>(path);
  next->singleOrMultiple = singleOrMultiple;
  return next;
}

void PickFileOnlyController::fileTapped(const std::string& path) {
  auto& rows = pickedRows();
  auto at = std::find(rows.begin(), rows.end(), path);
  if (at != rows.end()) {
    rows.erase(at);
  } else {
    rows.push_back(path);
  }
  if (singleOrMultiple == 0 && !rows.empty()) return saveCategory();
  setToolbarItems();
}

void PickFileOnlyController::selectAllFiles() {
  auto& rows = pickedRows();
  for (const auto& path : items()) {
    if (FileUtil::isDirectoryFilePath(path)) continue;
    if (std::find(rows.begin(), rows.end(), path) == rows.end()) rows.push_back(path);
  }
  setToolbarItems();
}

void PickFileOnlyController::saveCategory() {
  std::vector<std::string> picked = pickedRows();
  pickedRows().clear();
  if (pickDelegate->onPickerFiles) pickDelegate->onPickerFiles(picked, pickTag);
  closePicker();
}

// PickFileAndDirectoryController
std::shared_ptr<PickFileBaseDirectory> PickFileAndDirectoryController::makeSame(
    const std::string& path) const {
  return std::make_shared<PickFileAndDirectoryController>(path);
}

void PickFileAndDirectoryController::toggleCheck(const std::string& path) {
  auto& rows = pickedRows();
  auto at = std::find(rows.begin(), rows.end(), path);
  if (at != rows.end()) {
    rows.erase(at);
  } else {
    rows.push_back(path);
  }
  setToolbarItems();
}

bool PickFileAndDirectoryController::checkRow(const std::string& name) {
  std::string path = pathOfRow(name);
  if (path.empty()) return false;
  toggleCheck(path);
  return true;
}

void PickFileAndDirectoryController::folderTapped(const std::string& path) {
  if (isRowMarked(path)) return;
  pushSelfController(path);
}

void PickFileAndDirectoryController::saveCategory() {
  std::vector<std::string> picked = pickedRows();
  pickedRows().clear();
  if (pickDelegate->onPickerFiles) pickDelegate->onPickerFiles(picked, pickTag);
  closePicker();
}

void PickFileAndDirectoryController::cancelPick() {
  pickedRows().clear();
  closePicker();
}

}  // namespace harbor
