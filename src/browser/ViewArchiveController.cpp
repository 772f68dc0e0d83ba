#include "browser/ViewArchiveController.h"

#include <algorithm>

#include "archive/ArchiveBase.h"
#include "browser/FileTransferController.h"
#include "encoding/EncodingUtil.h"
#include "encoding/PickSystemLanguagePort.h"
#include "filemanager/FileUtil.h"
#include "platform/MainQueue.h"
#include "platform/NotificationNames.h"
#include "platform/Strings.h"

namespace harbor {

ViewArchiveController::ViewArchiveController(std::string archivePath)
    : FileManagerController(FileUtil::getFileDirectory(archivePath)),
      _session(std::make_shared<Session>()) {
  _session->archivePath = std::move(archivePath);
}

ViewArchiveController::ViewArchiveController(std::shared_ptr<Session> session, ZipEntry::Ptr entry)
    : FileManagerController(FileUtil::getFileDirectory(session->archivePath)),
      _session(std::move(session)),
      _entry(std::move(entry)) {
  archiveDelegate = _session->reader;
}

ViewArchiveController::~ViewArchiveController() = default;

bool ViewArchiveController::isRootScreen() const {
  return !_entry || !_session->reader || _entry == _session->reader->rootEntry();
}

std::string ViewArchiveController::fullRelativePath() const {
  std::string relative = FileUtil::getDocumentRelativePath(_session->archivePath);
  if (_entry && !_entry->isRootEntry()) relative += "/" + _entry->path();
  while (relative.size() > 1 && relative.back() == '/') relative.pop_back();
  return relative;
}

std::string ViewArchiveController::archiveTitle() const {
  std::string name = isRootScreen() ? FileUtil::getFileName(_session->archivePath)
                                    : (_entry ? _entry->name() : "");
  return name + "-" + std::to_string(_entry ? _entry->totalNumber() : 0);
}

void ViewArchiveController::viewDidLoad() {
  if (_loaded) return;
  _loaded = true;
  _title = archiveTitle();
  port().setTitle(_title);
  if (_entry) return;
  std::weak_ptr<FileManagerBaseController> weak = weak_from_this();
  // Names decoded badly are put right by picking the encoding by hand.
  _observers.push_back(NotificationCenter::defaultCenter().addObserver(
      notifications::HBEncodingChangeNotication, [weak](const auto&) {
        auto self = std::static_pointer_cast<ViewArchiveController>(weak.lock());
        if (self && self->isRootScreen()) self->changeEncoding();
      }));
  loadArchive();
}

void ViewArchiveController::loadArchive() {
  auto session = _session;
  startThread(
      [this, self = shared_from_this(), session] {
        archive(session->archivePath);
        if (!archiveDelegate) {
          alertMsg("Failure",
                   localizedString("Failure") + " " + FileUtil::getFileName(session->archivePath));
        } else {
          readArchive();
          if (!isCurrentThreadCancelled()) initCheckPassword();
          session->password = correctPwd;
          if (auto error = archiveDelegate->archiveError();
              error && error->code != kArchiveErrorCancelled && !_passwordAbandoned &&
              archiveDelegate->rootEntry()->children().empty())
            alertMsg("Failure", error->message);
        }
        auto reader = archiveDelegate;
        MainQueue::shared().postAndWait([this, session, reader] {
          session->reader = reader;
          session->listed = true;
          if (reader) _entry = reader->rootEntry();
          _title = archiveTitle();
          port().setTitle(_title);
        });
      },
      false);
}

void ViewArchiveController::changeEncoding() {
  if (!_session->reader) return;
  std::lock_guard lock(_objectLock);
  auto reader = _session->reader;
  auto session = _session;
  session->listed = false;
  startThread(
      [this, self = shared_from_this(), reader, session] {
        reader->setFileEncoding(
            static_cast<std::uint64_t>(EncodingUtil::getCurrentFileEncoding(session->archivePath)));
        reader->rootEntry()->clear();
        reader->listFiles();
        MainQueue::shared().postAndWait([this, session] {
          session->listed = true;
          _selectedEntries.clear();
          _title = archiveTitle();
          port().setTitle(_title);
        });
      },
      false);
}

std::vector<FileManagerBaseController::Row> ViewArchiveController::rows() const {
  std::vector<Row> out;
  if (!_entry) return out;
  for (const auto& child : _entry->children()) {
    Row row;
    row.name = child->name();
    row.isFolder = !child->isLeaf();
    row.size = child->size();
    row.selected = isRowMarked(child->path());
    out.push_back(std::move(row));
  }
  return out;
}

ZipEntry::Ptr ViewArchiveController::childNamed(const std::string& name) const {
  if (!_entry) return nullptr;
  for (const auto& child : _entry->children()) {
    if (child->name() == name) return child;
  }
  return nullptr;
}

std::string ViewArchiveController::pathOfRow(const std::string& name) const {
  auto child = childNamed(name);
  return child ? child->path() : std::string();
}

bool ViewArchiveController::isRowMarked(const std::string& path) const {
  return std::any_of(_selectedEntries.begin(), _selectedEntries.end(),
                     [&](const ZipEntry::Ptr& e) { return e->path() == path; });
}

bool ViewArchiveController::tapRow(const std::string& name) {
  auto child = childNamed(name);
  if (!child) return false;
  tapEntry(child);
  return true;
}

bool ViewArchiveController::holdRow(const std::string& name) {
  auto child = childNamed(name);
  if (!child) return false;
  holdEntry(child);
  return true;
}

void ViewArchiveController::tapEntry(const ZipEntry::Ptr& entry) {
  if (_editing) {
    if (!isRowMarked(entry->path())) _selectedEntries.push_back(entry);
    return;
  }
  if (!entry->isLeaf()) {
    auto next = std::shared_ptr<ViewArchiveController>(new ViewArchiveController(_session, entry));
    next->setPort(_port);
    pushController(next);
    return;
  }
  viewFile(entry);
}

void ViewArchiveController::holdEntry(const ZipEntry::Ptr& entry) {
  if (!_editing) {
    _selectedEntries.assign(1, entry);
  } else {
    std::erase_if(_selectedEntries, [&](const ZipEntry::Ptr& e) { return e == entry; });
    _selectedEntries.push_back(entry);
  }
  openSheet();
}

void ViewArchiveController::openSheet() {
  std::vector<std::string> entries{"Extract", "Extract As...", "Encoding"};
  entries.push_back(_showItemstype == FilePresenter::kShowIcons ? "Show items as list"
                                                                : "Show items as icons");
  entries.push_back("Cancel");
  showSheetAndHandle(makeSheet(kTagArchiveOptions, entries));
}

bool ViewArchiveController::sheetChosen(int tag, const std::string& entry) {
  if (tag != kTagArchiveOptions) return false;
  if (entry == "Extract") {
    unArchive();
  } else if (entry == "Extract As...") {
    auto picker = std::make_shared<PickDirectoryController>(FileUtil::documentDirectory());
    std::weak_ptr<FileManagerBaseController> weak = weak_from_this();
    picker->onSelectDirectory = [weak](const std::string& relative) {
      if (auto self = std::static_pointer_cast<ViewArchiveController>(weak.lock()))
        self->unArchive(relative);
    };
    pushController(picker);
  } else if (entry == "Encoding") {
    _encodingPicker = PickSystemLanguagePortView::create(_port, _session->archivePath, false);
    _encodingPicker->show();
  } else if (entry == "Show items as list" || entry == "Show items as icons") {
    _showItemstype =
        entry == "Show items as list" ? FilePresenter::kShowList : FilePresenter::kShowIcons;
  } else if (entry != "Cancel") {
    return false;
  }
  return true;
}

void ViewArchiveController::unArchive(const std::string& destinationRelative) {
  if (!_session->reader) return;
  std::string target;
  if (!destinationRelative.empty()) {
    target = FileUtil::documentDirectory();
    if (destinationRelative != "/") target += destinationRelative;
  }
  auto entries = _selectedEntries;
  startAction([target, entries](FileManagerController& base) {
    auto& self = static_cast<ViewArchiveController&>(base);
    self.archiveDelegate = self._session->reader;
    self.archiveDelegate->setActionDelegate(&self);
    self.unzipDestination = target;
    self._extractEntries = entries;
    self.unzip();
  });
}

bool ViewArchiveController::checkPassword() {
  // A password entered on any screen of this archive serves them all.
  if (!_session->password.empty()) correctPwd = _session->password;
  bool ok = FileManagerController::checkPassword();
  if (ok && !_password.empty()) _session->password = _password;
  return ok;
}

void ViewArchiveController::unzipFinished() {
  if (_retryPassword) _session->password.clear();
  std::string shown;
  MainQueue::shared().postAndWait([&] { shown = scrollToValue; });
  unzipDestination.clear();
  MainQueue::shared().post([weak = weak_from_this(), shown] {
    auto self = std::static_pointer_cast<ViewArchiveController>(weak.lock());
    if (!self) return;
    self->_selectedEntries.clear();
    self->setEditing(false);
  });
  if (!shown.empty())
    NotificationCenter::defaultCenter().post(notifications::ExtractFilesFinishedNotification,
                                             shown);
}

void ViewArchiveController::viewFile(const ZipEntry::Ptr& entry) {
  startAction([entry](FileManagerController& base) {
    auto& self = static_cast<ViewArchiveController&>(base);
    self.archiveDelegate = self._session->reader;
    self.archiveDelegate->setActionDelegate(&self);
    if (!self.checkPassword()) {
      MainQueue::shared().post([p = self.portPointer()] { p->setBusy(false); });
      return;
    }
    self.viewThread(entry);
  });
}

void ViewArchiveController::viewThread(const ZipEntry::Ptr& entry) {
  _destination = ArchiveBase::tempItemDirectory();
  setTotalSizeWithNum(entry->uncompressedSize());
  archiveDelegate->setPassword(_password);
  archiveDelegate->setIsArchiveFileTime(false);
  bool ok = archiveDelegate->unArchivePath(entry.get(), _destination);
  archiveDelegate->setIsArchiveFileTime(true);
  const std::string file = _destination + "/" + entry->name();
  const bool cancelled = isCurrentThreadCancelled();
  if (!ok && !cancelled) {
    if (archiveDelegate->isPasswordFailure()) {
      _session->password.clear();
      alertMsg("PasswordIsError", localizedString("PasswordIsError"));
    } else if (auto error = archiveDelegate->archiveError();
               error && error->code != kArchiveErrorCancelled) {
      alertMsg("Failure", error->message);
    }
  }
  std::weak_ptr<FileManagerBaseController> weak = weak_from_this();
  MainQueue::shared().postAndWait([weak, ok, cancelled, file] {
    auto self = std::static_pointer_cast<ViewArchiveController>(weak.lock());
    if (!self) return;
    self->port().setBusy(false);
    // Opened alone: an archive member has no neighbours to page through.
    if (ok && !cancelled) {
      FileUtil::setfullPermission(file);
      self->loadFilePathFromServer(file);
    }
  });
}

}  // namespace harbor
