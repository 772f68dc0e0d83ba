// The actions on a selection: clipboard, paste, delete, compress, extract,
// create and rename. Long work runs on the screen's worker; everything that
// touches the screen hops to the main queue.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <thread>

#include "archive/ArchiveBase.h"
#include "archive/SafeExtraction.h"
#include "archive/ZipBase.h"
#include "browser/BrowserSupport.h"
#include "browser/FileManagerController.h"
#include "browser/FileTransferController.h"
#include "browser/ViewArchiveController.h"
#include "encoding/EncodingUtil.h"
#include "filemanager/CommonUtil.h"
#include "filemanager/FileManagerUtil.h"
#include "filemanager/FileUtil.h"
#include "filemanager/TempDirectoryUtil.h"
#include "platform/FileWrite.h"
#include "platform/Log.h"
#include "platform/MainQueue.h"
#include "platform/NotificationNames.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "platform/Unicode.h"

namespace harbor {

namespace fs = std::filesystem;

namespace {

bool exists(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0;
}

bool sameFileSystem(const std::string& a, const std::string& b) {
  struct stat sa, sb;
  return ::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev;
}

// A folder for work that must not show until it is whole: in the temporary
// folder when that is on the destination's file system (a rename then
// finishes the job), else hidden inside the destination itself.
std::string hiddenWorkFolder(const std::string& destination) {
  std::string temp = TempDirectoryUtil::archiveDirectory();
  std::string base = sameFileSystem(temp, destination) ? temp : destination;
  std::string folder = base + "/." + extraction::uniqueName();
  FileUtil::createFolder(folder);
  return folder;
}

void runOnMain(std::function<void()> work) {
  MainQueue::shared().postAndWait(std::move(work));
}

}  // namespace

std::string FileManagerController::makeHiddenWorkFolder(const std::string& destination) {
  return hiddenWorkFolder(destination);
}

// ---- clipboard ------------------------------------------------------------------------

void FileManagerController::transferSingle(bool isCopy) {
  TransferClipboard::saveCopySystemPath(selectedRows(), isCopy);
  setEditing(false);
  setToolbarItems();
}

void FileManagerController::moveToFolder(int type) {
  TransferClipboard::saveCopySystemPath(selectedRows(), type == 1);
  auto chooser = std::make_shared<FileTransferController>(FileUtil::documentDirectory());
  chooser->transferType = type;
  chooser->sourceFolder = _folderPath;
  std::weak_ptr<FileManagerBaseController> weak = weak_from_this();
  chooser->onTransferComplete = [weak] {
    if (auto self = weak.lock()) self->reloadData();
  };
  setEditing(false);
  pushController(chooser);
}

std::string FileManagerController::getCopyOrCutFilename(const std::string& path,
                                                        const std::string& desFolder) {
  (void)desFolder;
  return FileUtil::getFileName(path);
}

// ---- paste ------------------------------------------------------------------------------

void FileManagerController::pasteFile() {
  bool isCopy = false;
  if (TransferClipboard::getCopySystemPath(isCopy)) return paste();
  auto board = IPasteboard::shared();
  std::vector<std::string> made;
  if (auto text = board->string()) {
    clearWatcher();
    std::string target = FileUtil::getCreateFileName(_folderPath, "Paste", "txt");
    if (CreateFile(FileUtil::getFileName(target), *text, 0, {})) made.push_back(target);
    scrollToValue = target;
    board->clearString();
    loadWatcher();
  } else if (auto images = board->images(); !images.empty()) {
    clearWatcher();
    for (const auto& bytes : images) {
      std::string target = FileUtil::getCreateFileName(_folderPath, "Paste", "png");
      if (!writeFileAtomically(target, bytes)) made.push_back(target);
    }
    board->clearImages();
    loadWatcher();
  }
  TransferClipboard::saveCopySystemPath(std::nullopt, false);
  addToSearchResultOrReload(made, {});
}

void FileManagerController::paste() {
  if (selectedRows().size() == 1 && startPasswordRound(kTagPaste)) return;
  pasteAction();
}

void FileManagerController::pasteAction() {
  clearWatcher();
  startAction([](FileManagerController& self) { self.pasteSingle(); });
}

bool FileManagerController::isCanReplae(const std::string& path, const std::string& desPath) {
  if (!FileUtil::isDirectoryFilePath(path)) return true;
  if (!isPathAtOrBelow(desPath, path) && !isPathAtOrBelow(path, desPath)) return true;
  std::string name = FileUtil::getFileName(desPath);
  while (!name.empty() && name.front() == '/') name.erase(name.begin());
  alertMsg("CanNotReplace", localizedString("CanNotReplace") + " " + name);
  return false;
}

void FileManagerController::pasteSingle() {
  bool isCopy = false;
  std::vector<std::string> paths =
      TransferClipboard::getCopySystemPath(isCopy).value_or(std::vector<std::string>{});
  setTotalSizeWithNum(isCopy ? FileUtil::getFileSizeFiles(paths) : paths.size());
  for (const auto& path : paths) {
    std::string target = _folderPath + "/" + FileUtil::getFileName(path);
    if (target == path) continue;
    // A folder into or below itself: stop before anything is touched, and
    // keep the clipboard so the user can paste elsewhere.
    if (!isCanReplae(path, target)) {
      runOnMain([this] {
        port().setBusy(false);
        loadWatcher();
      });
      return;
    }
  }
  updateTitle(localizedString(isCopy ? "Copying files" : "Moving files"));
  std::vector<std::string> created;
  std::string reveal;
  std::vector<std::string> removed;
  for (const auto& path : paths) {
    if (isCurrentThreadCancelled()) break;
    if (!isCopy) progressFinished(1);
    std::string target = _folderPath + "/" + FileUtil::getFileName(path);
    if (!isCopy && target == path) continue;
    if (!exists(path)) continue;
    std::string name = getCopyOrCutFilename(path, _folderPath);
    if (name.empty()) continue;
    // Clashes never overwrite and never ask: the copy takes a free name.
    std::string destination =
        FileUtil::isDirectoryFilePath(path)
            ? FileUtil::getCreateFolderName(_folderPath, name)
            : FileUtil::getCreateFileName(_folderPath, FileUtil::getFileNameNoExtension(name),
                                          FileUtil::getFileExtension(name));
    reveal = destination;
    if (copyOrCutFile(path, destination, isCopy ? 1 : 2)) {
      created.push_back(destination);
      if (!isCopy) removed.push_back(path);
    } else if (!isCurrentThreadCancelled()) {
      ++_failures;
    }
  }
  const bool cancelled = isCurrentThreadCancelled();
  // A cancelled copy takes back what it made; moved items stay where they
  // went, since their sources are gone.
  if (cancelled && isCopy) {
    for (const auto& path : created) FileUtil::deleteFile(path);
    created.clear();
  }
  TransferClipboard::saveCopySystemPath(std::nullopt, false);
  setStatusText(localizedString(cancelled ? "UserCancelAction" : "Done") + ", " +
                std::to_string(_failures.load()) + " " + localizedString("Failure"));
  // The screen's fields are the main thread's: the worker hands them over.
  if (cancelled) reveal.clear();
  runOnMain([this, created, removed, reveal] {
    if (!reveal.empty()) scrollToValue = reveal;
    clearSelection();
    port().setBusy(false);
    loadWatcher();
    addToSearchResultOrReload(created, removed);
  });
  pasteActionEnd(cancelled);
}

bool FileManagerController::copyOrCutFile(const std::string& path, const std::string& newPath,
                                          int pType) {
  if (path.empty() || newPath.empty()) return false;
  if (pType == 1) {
    if (FileUtil::copyItem(path, newPath, this)) {
      FileManagerUtil::copyFileAndPassword(path, newPath);
      return true;
    }
    // Nothing half-copied stays under the new name.
    FileUtil::deleteFile(newPath);
    return false;
  }
  if (exists(newPath)) FileUtil::deleteFile(newPath);
  std::error_code ec;
  fs::rename(path, newPath, ec);
  if (ec == std::errc::cross_device_link) {
    // Another file system: copy, and let the source go only once the copy is whole.
    ec.clear();
    if (!FileUtil::copyItem(path, newPath, nullptr)) {
      FileUtil::deleteFile(newPath);
      return false;
    }
    FileUtil::deleteFile(path);
  } else if (ec) {
    HB_LOG("FileManagerController", "cannot move " + path + ": " + ec.message());
    return false;
  }
  FileManagerUtil::cutFileAndPassword(path, newPath);
  return true;
}

// ---- delete ------------------------------------------------------------------------------

void FileManagerController::deleteFileActionSheet() {
  ScreenAlert alert = makeAlert(kTagDeleteConfirm, "ConfirmDelete", {}, {"Cancel", "OK"});
  std::weak_ptr<FileManagerBaseController> weak = weak_from_this();
  port().showAlert(alert, [weak](int button, const std::vector<std::string>&) {
    auto self = std::static_pointer_cast<FileManagerController>(weak.lock());
    if (self && button == 1) self->deleteItems();
  });
}

void FileManagerController::deleteItems() {
  if (selectedRows().empty()) return;
  if (!startPasswordRound(kTagDelete)) deleteAction();
}

void FileManagerController::deleteAction() {
  clearWatcher();
  startAction([](FileManagerController& self) { self.deleteThread(); });
}

void FileManagerController::deleteThread() {
  std::vector<std::string> selection;
  runOnMain([&] { selection = selectedRows(); });
  // Every entry once, a folder before what it holds; the directory tells the
  // kinds, so the walk costs no stat per file.
  struct Item {
    std::string path;
    bool isFolder;
  };
  std::vector<Item> flat;
  for (const auto& path : selection) {
    const bool folder = FileUtil::isDirectoryFileType(path);
    flat.push_back({path, folder});
    if (!folder) continue;
    std::error_code ec;
    for (fs::recursive_directory_iterator
             it(path, fs::directory_options::skip_permission_denied, ec),
         end;
         !ec && it != end; it.increment(ec)) {
      flat.push_back({it->path().string(), !it->is_symlink() && it->is_directory()});
    }
  }
  setTotalSizeWithNum(flat.size());
  updateTitle(localizedString("Deleting"));
  for (const auto& path : selection) {
    if (FileUtil::isDirectoryFileType(path))
      FileManagerUtil::removeDirectoryThumbAndScreenImage(path);
    else
      FileManagerUtil::removeThumbAndScreenImage(path);
  }
  // Backwards, so a folder is empty when its turn comes.
  for (auto it = flat.rbegin(); it != flat.rend(); ++it) {
    if (isCurrentThreadCancelled()) break;
    const int rc = it->isFolder ? ::rmdir(it->path.c_str()) : ::unlink(it->path.c_str());
    if (rc != 0 && errno != ENOENT && !FileUtil::deleteFile(it->path)) ++_failures;
    progressFinished(1);
  }
  for (const auto& path : selection) {
    if (isCurrentThreadCancelled()) break;
    if (!exists(path)) FileManagerUtil::removeFileAndChildrenPassword(path);
  }
  CommonUtil::checkBookMark();
  if (_failures) setStatusText(std::to_string(_failures.load()) + " " + localizedString("Failure"));
  runOnMain([this, selection] {
    if (filePresenter().isSearchResult()) filePresenter().checkFilesExistsAndRemove();
    setEditing(false);
    port().setBusy(false);
    reloadData();
    loadWatcher();
  });
}

// ---- compress ----------------------------------------------------------------------------

std::string FileManagerController::getDefaultZipName() const {
  const auto& rows = const_cast<FileManagerController*>(this)->selectedRows();
  if (rows.empty()) return {};
  return FileUtil::getFileNameNoExtension(rows.front());
}

void FileManagerController::compressFile(const std::string& format, bool withPassword) {
  _archiveFormat = format;
  if (!withPassword) return compressFileThread({}, {});
  ScreenAlert alert = makeAlert(
      kTagCompressNamePassword, "Compress files", {}, {"Cancel", "OK"},
      {{localizedString("Name"), getDefaultZipName()}, {localizedString("Password"), ""}});
  std::weak_ptr<FileManagerBaseController> weak = weak_from_this();
  port().showAlert(alert, [weak](int button, const std::vector<std::string>& fields) {
    auto self = std::static_pointer_cast<FileManagerController>(weak.lock());
    if (!self || button != 1) return;
    std::string name = fields.size() > 0 ? trim(std::string_view(fields[0])) : std::string();
    std::string password = fields.size() > 1 ? fields[1] : std::string();
    self->compressFileThread(name, password);
  });
}

void FileManagerController::compressFileThread(const std::string& name,
                                               const std::string& password) {
  std::string format = _archiveFormat;
  startAction([format, name, password](FileManagerController& self) {
    self.zipFiles(format, name, password);
  });
}

void FileManagerController::zipFiles(const std::string& formatIn, const std::string& dialogName,
                                     const std::string& password) {
  std::vector<std::string> selection;
  runOnMain([&] { selection = selectedRows(); });
  bool cancelled = false;
  std::string made;
  if (!selection.empty()) {
    std::string name =
        dialogName.empty() ? FileUtil::getFileNameNoExtension(selection.front()) : dialogName;
    ZipPropertyOptions options;
    options.password = password;
    updateTitle(localizedString("Compressing") + " " + name);
    setTotalSizeWithNum(FileUtil::getFileSizeFiles(selection));
    const std::string format = formatIn.empty() ? "zip" : formatIn;
    const std::string work = hiddenWorkFolder(_folderPath);
    const std::string archivePath = work + "/" + name + "." + format;
    auto writer = ArchiveFactory::createZipFactory(selection, this, archivePath, options);
    std::optional<Error> error = writer ? writer->error() : std::optional<Error>();
    std::vector<std::string> messages = writer ? writer->zipMsg() : std::vector<std::string>{};
    // The writer puts the archive under its name only as it closes.
    writer.reset();
    cancelled = isCurrentThreadCancelled() || (error && error->code == kArchiveErrorCancelled);
    if (!cancelled) {
      if (!exists(archivePath)) {
        std::string why = error && !error->message.empty() ? error->message
                          : !messages.empty()              ? messages.front()
                                                           : localizedString("Failure");
        alertMsg("Failure", why);
      } else {
        std::string target = FileUtil::getCreateFileName(_folderPath, name, format);
        if (auto moved = moveNoReplace(archivePath, target)) {
          alertMsg("Failure", moved->message);
        } else {
          made = target;
        }
      }
    }
    FileUtil::deleteFile(work);
  }
  runOnMain([this, cancelled, made] {
    if (!made.empty()) scrollToValue = made;
    setEditing(false);
    port().setBusy(false);
    if (!cancelled) {
      addToSearchResultOrReload(
          made.empty() ? std::vector<std::string>{} : std::vector<std::string>{made}, {});
      if (!made.empty()) alertMsg("ZipSucceefully");
    } else {
      reloadData();
    }
  });
}

// ---- extract -----------------------------------------------------------------------------

void FileManagerController::decompressFile(const std::string& path) {
  std::string archivePath = path;
  startAction([archivePath](FileManagerController& self) { self.loadArchiveFileURL(archivePath); });
}

void FileManagerController::extractAs(const std::string& path,
                                      const std::string& destinationRelative) {
  std::string target = FileUtil::documentDirectory();
  if (destinationRelative != "/") target += destinationRelative;
  std::string archivePath = path;
  startAction([archivePath, target](FileManagerController& self) {
    self.unzipDestination = target;
    self.loadArchiveFileURL(archivePath);
  });
}

void FileManagerController::browserArchiveFile(const std::string& path) {
  auto viewer = std::make_shared<ViewArchiveController>(path);
  pushController(viewer);
}

namespace {
FileManagerController::ReaderMaker& readerMaker() {
  static FileManagerController::ReaderMaker maker;
  return maker;
}
}  // namespace

void FileManagerController::setReaderMaker(ReaderMaker maker) {
  readerMaker() = std::move(maker);
}

void FileManagerController::archive(const std::string& path) {
  std::shared_ptr<IArchive> reader =
      readerMaker() ? readerMaker()(path)
                    : std::shared_ptr<IArchive>(ArchiveFactory::createReader(path));
  if (reader) {
    reader->setFileEncoding(static_cast<std::uint64_t>(EncodingUtil::getCurrentFileEncoding(path)));
    reader->setActionDelegate(this);
    if (reader->isProgressListFiles()) setTotalSizeWithNum(FileUtil::getFileSize(path));
  }
  archiveDelegate = reader;
}

void FileManagerController::readArchive() {
  _password.clear();
  correctPwd.clear();
  _isEncrypted.reset();
  archiveDelegate->listFiles();
}

std::optional<std::string> FileManagerController::askArchivePassword() {
  std::string name = archiveDelegate ? FileUtil::getFileName(archiveDelegate->filePath()) : "";
  ScreenAlert alert =
      makeAlert(kTagArchivePassword, "Password", "'" + name + "' " + localizedString("Password"),
                {"Cancel", "OK"}, {{localizedString("Password"), ""}});
  ScreenPort::Answer answer = ScreenPort::askAndWait(port(), alert);
  if (answer.button != 1 || answer.fields.empty() || answer.fields.front().empty())
    return std::nullopt;
  return answer.fields.front();
}

void FileManagerController::initCheckPassword() {
  auto root = archiveDelegate->rootEntry();
  if (!root) return;
  // Encrypted names list nothing, and a reader that opens entries as it
  // lists stops at the first locked one, until the password is right.
  auto needsPassword = [&] {
    return archiveDelegate->isPasswordFailure() ||
           (root->children().empty() && archiveDelegate->isEncryptedFileName());
  };
  _passwordAbandoned = false;
  if (!needsPassword()) return;
  while (!isCurrentThreadCancelled()) {
    auto password = askArchivePassword();
    if (!password) break;
    root->clear();
    archiveDelegate->setPassword(*password);
    archiveDelegate->listFiles();
    if (!needsPassword() && !root->children().empty()) {
      correctPwd = *password;
      _password = *password;
      return;
    }
    alertMsg("PasswordIsError", localizedString("PasswordIsError"));
  }
  // Given up: nothing of a half listing may be extracted.
  _passwordAbandoned = true;
  root->clear();
}

void FileManagerController::loadArchiveFileURL(const std::string& path) {
  archive(path);
  if (!archiveDelegate) {
    alertMsg("Failure", localizedString("Failure") + " " + FileUtil::getFileName(path));
    runOnMain([this] { port().setBusy(false); });
    return;
  }
  readArchive();
  if (!isCurrentThreadCancelled()) initCheckPassword();
  if (isCurrentThreadCancelled() || archiveDelegate->rootEntry()->children().empty()) {
    if (auto error = archiveDelegate->archiveError();
        error && error->code != kArchiveErrorCancelled && !_passwordAbandoned)
      alertMsg("Failure", error->message);
    archiveDelegate.reset();
    unzipDestination.clear();
    runOnMain([this] {
      port().setBusy(false);
      reloadData();
    });
    return;
  }
  autoUnArchive();
}

void FileManagerController::autoUnArchive() {
  if (!isAutoExtract()) {
    runOnMain([this] { port().setBusy(false); });
    return;
  }
  _extractEntries.clear();
  unzip();
}

bool FileManagerController::checkPassword() {
  if (!_isEncrypted) _isEncrypted = archiveDelegate->isEncrypted();
  if (!*_isEncrypted) return true;
  if (!correctPwd.empty()) {
    _password = correctPwd;
    return true;
  }
  auto password = askArchivePassword();
  if (!password) return false;
  _password = *password;
  return true;
}

std::string FileManagerController::extractDestination() const {
  if (!unzipDestination.empty()) return unzipDestination;
  return archiveDelegate ? FileUtil::getFileDirectory(archiveDelegate->filePath()) : _folderPath;
}

void FileManagerController::resetDestination() {
  _destination = hiddenWorkFolder(extractDestination());
}

void FileManagerController::unzip() {
  // A wrong password asks again; an empty answer or a cancel ends it all.
  for (;;) {
    if (isCurrentThreadCancelled() || !checkPassword()) {
      releaseArchive();
      unzipDestination.clear();
      runOnMain([this] {
        clearSelection();
        port().setBusy(false);
      });
      return;
    }
    resetDestination();
    unzipThread(_extractEntries);
    if (!_retryPassword) return;
    _retryPassword = false;
    correctPwd.clear();
  }
}

void FileManagerController::unzipThread(const std::vector<ZipEntry::Ptr>& entries) {
  updateTitle(localizedString("Extracting") + " " +
              FileUtil::getFileName(archiveDelegate->filePath()));
  setTotalSizeWithNum(entries.empty() ? archiveDelegate->rootEntry()->totalSize()
                                      : ZipEntry::totalSizes(entries));
  FileUtil::createFolder(_destination);
  archiveDelegate->setPassword(_password);
  bool ok = true;
  if (entries.empty()) {
    ok = archiveDelegate->unArchivePath(_destination);
  } else {
    for (const auto& entry : entries) {
      if (isCurrentThreadCancelled()) break;
      ok = archiveDelegate->unArchivePath(entry.get(), _destination) && ok;
    }
  }
  const bool cancelled = isCurrentThreadCancelled();
  if (!ok && !cancelled) {
    if (archiveDelegate->isPasswordFailure()) {
      FileUtil::deleteFile(_destination);
      alertMsg("PasswordIsError", localizedString("PasswordIsError"));
      _retryPassword = true;
      return;
    }
    auto error = archiveDelegate->archiveError();
    if (error && error->code != kArchiveErrorCancelled) alertMsg("Failure", error->message);
  }
  moveDestination(cancelled || !ok);
  runOnMain([this] {
    clearSelection();
    port().setBusy(false);
  });
  unzipFinished();
}

std::string FileManagerController::getZipEntryName(const ZipEntry& entry) const {
  if (!entry.isRootEntry() || !archiveDelegate)
    return FileUtil::getFileNameNoExtension(entry.name());
  std::string path = archiveDelegate->filePath();
  std::string name = FileUtil::getFileNameNoExtension(path);
  if (USupportFile::lowerExtension(path) == "rar") {
    // "a.part1.rar" is the first volume of "a".
    auto dot = name.rfind('.');
    if (dot != std::string::npos &&
        toLower(std::string_view(name).substr(dot + 1)).starts_with("part"))
      name.resize(dot);
  }
  return name;
}

void FileManagerController::moveDestination(bool cancelled) {
  if (cancelled) {
    if (isCurrentThreadCancelled())
      alertMsg("UserCancelAction", localizedString("UserCancelAction") + " " +
                                       localizedString("Deleting the temporary files"));
    FileUtil::deleteFile(_destination);
    return;
  }
  const std::string target = extractDestination();
  std::vector<std::string> top = FileUtil::getCurrentFilesAndFoldersFullPath(_destination, true);
  std::string from;
  std::string to;
  if (top.size() > 1) {
    from = _destination;
    to = FileUtil::getCreateFolderName(target, getZipEntryName(*archiveDelegate->rootEntry()));
  } else if (top.size() == 1) {
    from = top.front();
    to = FileUtil::getCreateName(target, FileUtil::getFileName(from));
  }
  if (!from.empty()) {
    if (auto error = moveNoReplace(from, to)) {
      if (!FileUtil::copyItem(from, to, nullptr)) {
        FileUtil::deleteFile(to);
        alertMsg("Failure", error->message);
        to.clear();
      }
    }
    if (!to.empty()) runOnMain([this, to] { scrollToValue = to; });
  }
  // What is left of the hidden folder goes away without holding anyone up.
  if (exists(_destination)) {
    std::string left = _destination;
    std::thread([left] { FileUtil::deleteFile(left); }).detach();
  }
  _destination.clear();
}

void FileManagerController::unzipFinished() {
  if (!keepsArchive()) {
    if (archiveDelegate && archiveDelegate->rootEntry()) archiveDelegate->rootEntry()->clear();
    archiveDelegate.reset();
  }
  unzipDestination.clear();
  std::string shown;
  runOnMain([&] { shown = scrollToValue; });
  runOnMain([this, shown] {
    if (!shown.empty())
      addToSearchResultOrReload({shown}, {});
    else
      reloadData();
  });
  if (!shown.empty())
    NotificationCenter::defaultCenter().post(notifications::ExtractFilesFinishedNotification,
                                             shown);
}

// ---- create and rename -------------------------------------------------------------------

bool FileManagerController::CreateFile(const std::string& name, const std::string& content,
                                       int addType, const std::string& oldName) {
  const std::string path = _folderPath + "/" + name;
  if (addType == 0 && exists(path)) return false;
  if (addType != 0) {
    if (name != oldName && exists(path)) return false;
    if (!oldName.empty() && oldName != name) FileUtil::deleteFile(_folderPath + "/" + oldName);
  }
  if (auto error = writeFileAtomically(path, content)) {
    HB_LOG("FileManagerController", "cannot write " + path + ": " + error->message);
    return false;
  }
  EncodingUtil::saveFileEncoding(path, "UTF-8");
  return true;
}

bool FileManagerController::renameFile(const std::string& newName, const std::string& oldName,
                                       const std::string& password, bool isPassword,
                                       const std::string& directory) {
  const std::string folder = directory.empty() ? _folderPath : directory;
  const std::string to = folder + "/" + newName;
  const std::string from = folder + "/" + oldName;
  if (newName.empty() || newName.find('/') != std::string::npos || exists(to)) return false;
  // The rename itself refuses a taken name, even one that appears meanwhile.
  if (auto error = moveNoReplace(from, to)) return false;
  FileManagerUtil::cutFileAndPassword(from, to);
  if (isPassword) FileManagerUtil::saveFilePassword(to, password);
  return true;
}

bool FileManagerController::createFolder(const std::string& name, const std::string& password,
                                         Error* error) {
  const std::string path = _folderPath + "/" + name;
  if (name.empty() || name.find('/') != std::string::npos || exists(path)) {
    if (error) *error = Error{"FileManagerController", EEXIST, localizedString("FileExists")};
    return false;
  }
  std::error_code ec;
  if (!fs::create_directory(path, ec) || ec) {
    if (error) *error = Error{"FileManagerController", ec.value(), ec.message()};
    return false;
  }
  if (!password.empty()) FileManagerUtil::saveFilePassword(path, password);
  scrollToValue = path;
  addToSearchResultOrReload({path}, {});
  return true;
}

void FileManagerController::openRenameController() {
  if (selectedRows().size() != 1) return;
  const std::string path = selectedRows().front();
  ScreenAlert alert = makeAlert(kTagRename, "Rename", {}, {"Cancel", "OK"},
                                {{localizedString("Name"), FileUtil::getFileName(path)}});
  std::weak_ptr<FileManagerBaseController> weak = weak_from_this();
  port().showAlert(alert, [weak, path](int button, const std::vector<std::string>& fields) {
    auto self = std::static_pointer_cast<FileManagerController>(weak.lock());
    if (!self || button != 1 || fields.empty()) return;
    std::string name = trim(std::string_view(fields.front()));
    if (name == FileUtil::getFileName(path)) return;
    if (!self->renameFile(name, FileUtil::getFileName(path), {}, false,
                          FileUtil::getFileDirectory(path))) {
      self->alertMsg("FileExists");
    } else {
      self->scrollToValue = FileUtil::getFileDirectory(path) + "/" + name;
    }
    self->setEditing(false);
    self->addToSearchResultOrReload({FileUtil::getFileDirectory(path) + "/" + name}, {path});
  });
}

void FileManagerController::alertCreateFolder() {
  ScreenAlert alert = makeAlert(0, "CreateFolder", {}, {"Cancel", "OK"},
                                {{localizedString("Name"), ""}, {localizedString("Password"), ""}});
  std::weak_ptr<FileManagerBaseController> weak = weak_from_this();
  port().showAlert(alert, [weak](int button, const std::vector<std::string>& fields) {
    auto self = std::static_pointer_cast<FileManagerController>(weak.lock());
    if (!self || button != 1 || fields.empty()) return;
    Error error;
    if (!self->createFolder(trim(std::string_view(fields[0])), fields.size() > 1 ? fields[1] : "",
                            &error))
      self->alertMsg("FileExists", error.message);
  });
}

}  // namespace harbor
