#include "net/share/UHTTPConnection.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <filesystem>

#include "archive/zip/UZipFileArchive.h"
#include "filemanager/FileManagerUtil.h"
#include "filemanager/FileUtil.h"
#include "filemanager/IActionProgress.h"
#include "filemanager/TempDirectoryUtil.h"
#include "net/share/WiFiShare.h"
#include "platform/Directories.h"
#include "platform/Log.h"
#include "platform/NotificationCenter.h"
#include "platform/NotificationNames.h"
#include "platform/OperationQueue.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "prefs/LoginPasswordUtil.h"

namespace harbor {
namespace fs = std::filesystem;
namespace {

std::string dateText(std::chrono::system_clock::time_point t) {
  std::time_t tt = std::chrono::system_clock::to_time_t(t);
  std::tm tm{};
  localtime_r(&tt, &tm);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &tm);
  return buf;
}

bool isWritingType(const std::string& type) {
  return type == "delete" || type == "zip" || type == "createdir";
}

std::string joinRelative(const std::string& relative, const std::string& name) {
  return relative == "/" ? "/" + name : relative + "/" + name;
}

// The Documents-relative key of a full path: "/" for the root itself.
std::string relativeKey(const std::string& full, const std::string& root) {
  std::string r = relativePathBelow(full, root);
  return r.empty() ? "/" : r;
}

class ZipProgress : public IActionProgress {
 public:
  explicit ZipProgress(std::string guid) : guid_(std::move(guid)) {}
  using IActionProgress::progressFinished;
  void progressFinished(std::uint64_t units) override {
    WiFiShare::updateDownloaditem(guid_, units);
  }

 private:
  std::string guid_;
};

}  // namespace

UHTTPConnection::UHTTPConnection(std::shared_ptr<AsyncSocket> socket,
                                 std::shared_ptr<const HTTPConfig> config)
    : HTTPConnection(std::move(socket), std::move(config)) {
  if (ShareHooks::shared().unLockScreen) ShareHooks::shared().unLockScreen();
}

UHTTPConnection::~UHTTPConnection() {
  discardUpload();
  if (ShareHooks::shared().lockScreen) ShareHooks::shared().lockScreen();
}

std::string UHTTPConnection::jsonCharFilter(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '\\':
        out += "\\\\";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\n':
        out += "\\n";
        break;
      case '"':
        out += "\\\"";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\'':
        out += "\\'";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string UHTTPConnection::query(const std::string& key) const {
  auto it = queryParams_.find(key);
  if (it == queryParams_.end() || !it->second) return {};
  return *it->second;
}

std::string UHTTPConnection::documentsRoot() const {
  std::string root = FileUtil::documentDirectory();
  while (root.size() > 1 && root.back() == '/') root.pop_back();
  return root;
}

std::vector<std::string> UHTTPConnection::directoryIndexFileNames() {
  return {"index.html"};
}

// ---- Request set-up -----------------------------------------------------------

bool UHTTPConnection::supportsMethod(const std::string& method, const std::string& path) {
  isDownload_ = false;
  queryParams_ = HTTPUtil::parseParams(queryOfURI(path));
  type_ = query("type");
  _guid = query("guid");
  if (_guid.empty()) _guid = HTTPUtil::uuidString();
  auto decoded = decodedPathOfURI(path);
  pathValid_ = false;
  if (decoded) {
    std::string rel = *decoded;
    while (rel.size() > 1 && rel.back() == '/') rel.pop_back();
    relativePath_ = rel.empty() ? "/" : rel;
    std::string root = documentsRoot();
    folderPath_ = relativePath_ == "/" ? root : root + relativePath_;
    auto real = HTTPUtil::resolveInsideRoot(folderPath_, root);
    pathValid_ = real.has_value();
    realPath_ = real.value_or(std::string());
  }
  if (method == "POST") {
    isFormBody_ = isWritingType(type_);
    isUpload_ = !isFormBody_;
    body_.clear();
    formTooLarge_ = false;
    return true;
  }
  return HTTPConnection::supportsMethod(method, path);
}

int UHTTPConnection::checkRequestHead() {
  if (request_->method() != "POST") return 0;
  // A page from another site may not make a browser post here.
  if (auto origin = request_->headerField("Origin")) {
    auto host = request_->headerField("Host");
    std::string o = *origin;
    std::size_t scheme = o.find("://");
    std::string authority = scheme == std::string::npos ? o : o.substr(scheme + 3);
    if (!host || !equalsIgnoreCase(authority, *host)) return 403;
  }
  if (isFormBody_) {
    auto length = request_->headerField("Content-Length");
    if (length && length->size() < 20 && std::stoull(*length) > kMaxFormBody) return 400;
  }
  return 0;
}

void UHTTPConnection::prepareForBodyWithSize(std::uint64_t) {
  if (!isUpload_) return;
  uploadStarted_ = false;
  uploadIsAjax_ = request_->headerField("Ajaxupload").has_value();
  uploadAllowed_ =
      pathValid_ && FileUtil::isDirectoryFilePath(folderPath_) && isPathUnlocked(relativePath_);
  std::string boundary;
  if (auto type = request_->headerField("Content-Type")) {
    std::string lower = toLower(*type);
    std::size_t at = lower.find("boundary=");
    if (at != std::string::npos) boundary = type->substr(at + 9);
  }
  scanner_ = std::make_unique<UploadLineScanner>(boundary);
}

void UHTTPConnection::processBodyData(std::string_view data) {
  if (isFormBody_) {
    if (body_.size() + data.size() > kMaxFormBody) {
      formTooLarge_ = true;
      return;
    }
    body_.append(data);
    return;
  }
  if (!isUpload_ || !uploadAllowed_) return;
  if (uploadIsAjax_) {
    if (!uploadStarted_) {
      std::string name = "untitle";
      if (auto header = request_->headerField("X-File-Name")) {
        name = HTTPUtil::percentDecode(*header).value_or(*header);
      }
      createFile(name, data);
    } else {
      appendToFile(data);
    }
    return;
  }
  if (!scanner_) return;
  if (!uploadStarted_) {
    auto start = scanner_->scanHead(data);
    if (start.dropped) {
      uploadAllowed_ = false;
      return;
    }
    if (start.found) createFile(start.name, start.data);
    return;
  }
  appendToFile(scanner_->fileData(data));
}

void UHTTPConnection::finishBody() {
  if (isUpload_ && uploadAllowed_ && uploadIsAjax_ && !uploadStarted_) {
    // An empty file sent alone has no body piece to start it.
    std::string name = "untitle";
    if (auto header = request_->headerField("X-File-Name")) {
      name = HTTPUtil::percentDecode(*header).value_or(*header);
    }
    createFile(name, {});
  }
  if (fileHandle_ >= 0) {
    ::close(fileHandle_);
    fileHandle_ = -1;
    finishUploadFile();
  }
  discardUpload();
}

void UHTTPConnection::die() {
  discardUpload();
  HTTPConnection::die();
}

// ---- Uploads ----------------------------------------------------------------

bool UHTTPConnection::createFile(const std::string& rawName, std::string_view data) {
  uploadStarted_ = true;
  std::string name = UploadLineScanner::uploadLeafName(rawName);
  if (name.empty()) {
    uploadAllowed_ = false;  // a NUL in the name: refused
    return false;
  }
  uploadFolder_ =
      (fs::path(TempDirectoryUtil::httpServerDirectory()) / HTTPUtil::uuidString()).string();
  std::error_code ec;
  fs::create_directories(uploadFolder_, ec);
  fullpath_ = (fs::path(uploadFolder_) / name).string();
  fileHandle_ = ::open(fullpath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fileHandle_ < 0) {
    HB_LOG("UHTTPConnection", "cannot create " + fullpath_);
    uploadAllowed_ = false;
    discardUpload();
    return false;
  }
  appendToFile(data);
  return true;
}

void UHTTPConnection::appendToFile(std::string_view data) {
  if (fileHandle_ < 0) return;
  while (!data.empty()) {
    ssize_t n = ::write(fileHandle_, data.data(), data.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      HB_LOG("UHTTPConnection", "write failed on " + fullpath_);
      ::close(fileHandle_);
      fileHandle_ = -1;
      uploadAllowed_ = false;
      discardUpload();
      return;
    }
    data.remove_prefix(static_cast<std::size_t>(n));
  }
}

void UHTTPConnection::finishUploadFile() {
  std::string name = FileUtil::getFileName(fullpath_);
  std::string stem = FileUtil::getFileNameNoExtension(name);
  std::string ext = FileUtil::getFileExtension(name);
  // Another upload may take the free name between the look and the move, so
  // the move itself refuses to replace and the next name is tried.
  for (int attempt = 0; attempt < 1000; ++attempt) {
    std::string target = FileUtil::getCreateFileName(folderPath_, stem, ext);
    if (target.empty()) break;
    if (::renameat2(AT_FDCWD, fullpath_.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0) {
      return;
    }
    if (errno != EEXIST) {
      HB_LOG("UHTTPConnection", "cannot move the upload to " + target);
      return;
    }
  }
}

void UHTTPConnection::discardUpload() {
  if (fileHandle_ >= 0) {
    ::close(fileHandle_);
    fileHandle_ = -1;
  }
  if (!uploadFolder_.empty()) {
    std::error_code ec;
    fs::remove_all(uploadFolder_, ec);
    uploadFolder_.clear();
  }
  fullpath_.clear();
}

// ---- Passwords --------------------------------------------------------------

std::string UHTTPConnection::getCurrentPassword(const std::string& relative) {
  std::string trimmed = relative;
  while (!trimmed.empty() && (trimmed.front() == '/' || trimmed.back() == '/')) {
    if (trimmed.front() == '/') trimmed.erase(0, 1);
    if (!trimmed.empty() && trimmed.back() == '/') trimmed.pop_back();
  }
  if (trimmed.empty()) return LoginPasswordUtil::getWifiPassword();
  return FileManagerUtil::getFilePassword(documentsRoot() + "/" + trimmed).value_or("");
}

bool UHTTPConnection::isSameWithGetList(const std::string& relative) {
  std::string password = getCurrentPassword(relative);
  if (password.empty() || WiFiShareBase::isLoginGuid(_guid, relative)) return true;
  std::string given = query("password");
  if (!given.empty() && FileManagerUtil::isSamePassword(password, given)) {
    WiFiShareBase::addLoginGuid(_guid, relative);
    return true;
  }
  return false;
}

bool UHTTPConnection::isPathUnlocked(const std::string& relative) {
  auto check = [&](const std::string& key) {
    std::string password = getCurrentPassword(key);
    return password.empty() || WiFiShareBase::isLoginGuid(_guid, key);
  };
  if (!check("/")) return false;
  // Most shares lock no folder at all.
  if (FileManagerUtil::getPasswordHashTable().empty()) return true;
  std::size_t pos = 1;
  while (pos < relative.size()) {
    std::size_t slash = relative.find('/', pos);
    std::string key = relative.substr(0, slash);
    if (!check(key)) return false;
    if (slash == std::string::npos) break;
    pos = slash + 1;
  }
  return true;
}

std::vector<std::string> UHTTPConnection::getPasswordsFiles(const std::vector<std::string>& paths) {
  std::vector<std::string> out;
  std::string root = documentsRoot();
  for (auto it = paths.rbegin(); it != paths.rend(); ++it) {
    for (const auto& locked : FileManagerUtil::getAllPasswordFileList(*it)) {
      if (!WiFiShareBase::isLoginGuid(_guid, relativeKey(locked, root)) &&
          std::find(out.begin(), out.end(), locked) == out.end()) {
        out.push_back(locked);
      }
    }
  }
  return out;
}

// ---- Replies ----------------------------------------------------------------

std::string UHTTPConnection::getCurrentResonse(int isSecret, int isSame, const std::string& detail,
                                               const std::string& dir) {
  std::string out = "{";
  out += "'isSecret':" + std::to_string(isSecret);
  out += ",'isSame':" + std::to_string(isSame);
  out += ",'guid':'" + jsonCharFilter(_guid) + "'";
  out += ",'detail':'" + jsonCharFilter(detail) + "'";
  out += ",'dir':'" + jsonCharFilter(dir) + "'}";
  return out;
}

std::string UHTTPConnection::actionList() {
  int isSecret = getCurrentPassword(relativePath_).empty() ? 0 : 1;
  int isSame = isSameWithGetList(relativePath_) ? 1 : 0;
  int root = 0;
  // A locked folder above hides this one until the session has opened it.
  std::vector<std::string> ancestors = {"/"};
  std::size_t pos = 1;
  while (pos < relativePath_.size()) {
    std::size_t slash = relativePath_.find('/', pos);
    if (slash == std::string::npos) break;
    ancestors.push_back(relativePath_.substr(0, slash));
    pos = slash + 1;
  }
  if (relativePath_ != "/") {
    for (const auto& a : ancestors) {
      std::string password = getCurrentPassword(a);
      if (!password.empty() && !WiFiShareBase::isLoginGuid(_guid, a)) {
        isSame = 0;
        isSecret = 1;
        root = 1;
        break;
      }
    }
  }
  std::string out = "{";
  out += "'isSecret':" + std::to_string(isSecret);
  out += ",'isSame':" + std::to_string(isSame);
  appendSettingsToOutPut(out);
  out += ",'isDelete':0";
  out += ",'guid':'" + jsonCharFilter(_guid) + "'";
  out += ",'detail':'" + jsonCharFilter(localizedString("Please input password")) + "'";
  out += ",'root':" + std::to_string(root);
  out += ",'accesstype':15";
  out += ",'itemtext':'" + jsonCharFilter(localizedString("items")) + "'";
  out += ",'deletetext':'" + jsonCharFilter(localizedString("Delete")) + "'";
  out += ",'ConfirmDelete':'" + jsonCharFilter(localizedString("ConfirmDelete")) + "'";
  out += ",'title':'" + jsonCharFilter(title()) + "'";
  if (isSame) {
    loadCurrentFileListToOutPut(out);
    loadOther(out);
  }
  out += ",'dir':'" + jsonCharFilter(relativePath_) + "'}";
  return out;
}

std::vector<std::string> UHTTPConnection::loadCurrentFileList(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code ec;
  for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
    names.push_back(it->path().filename().string());
  }
  if (relativePath_ == "/") std::erase(names, std::string("Inbox"));
  FileManagerUtil::ignoreFile(names);
  std::erase_if(names, [](const std::string& n) {
    const auto& ignored = FileUtil::ignoreFileNames();
    return std::find(ignored.begin(), ignored.end(), n) != ignored.end();
  });
  std::sort(names.begin(), names.end());  // bytewise: folders and files mix
  return names;
}

std::string UHTTPConnection::getURLPath(const std::string& name, const std::string& type) const {
  return joinRelative(relativePath_, name) + "?type=" + type + "&guid=" + _guid;
}

std::string UHTTPConnection::iconurl(const std::string& path, bool isdir) {
  if (isdir) return {};
  static const std::vector<std::string> images = {"heic", "tif", "tiff", "png", "ico",
                                                  "gif",  "bmp", "jpeg", "jpg"};
  std::string ext = toLower(FileUtil::getFileExtension(path));
  if (std::find(images.begin(), images.end(), ext) == images.end()) return {};
  std::string thumb = FileManagerUtil::getThumbnailImage(path);
  if (thumb.empty()) return {};
  std::string below = relativePathBelow(thumb, FileManagerUtil::thumbnailDirectory());
  if (below.empty()) return {};
  return HTTPUtil::percentEscape("/Thumbnails" + below) + "?type=supportfile";
}

void UHTTPConnection::loadCurrentFileListToOutPut(std::string& out) {
  out += ",'items':[";
  auto names = loadCurrentFileList(folderPath_);
  for (std::size_t i = 0; i < names.size(); ++i) {
    const std::string& name = names[i];
    std::string full = folderPath_ + "/" + name;
    bool isdir = FileUtil::isDirectoryFilePath(full);
    if (i > 0) out += ",";
    std::string shown = isShowFileExtension() ? name : FileUtil::getFileNameNoExtension(name);
    out += "{'name':'" + jsonCharFilter(shown) + "'";
    out += ",'url':'" + jsonCharFilter(getURLPath(name, isdir ? "child" : "file")) + "'";
    out +=
        ",'downloadurl':'" + (isdir ? "" : jsonCharFilter(getURLPath(name, "downloadtemp"))) + "'";
    out += ",'iconurl':'" + jsonCharFilter(iconurl(full, isdir)) + "'";
    out += ",'isdir':" + std::to_string(isdir ? 1 : 0);
    out += ",'id':" + std::to_string(i);
    out += ",'filesize':" + std::to_string(FileUtil::getFileSize(full));
    out += ",'modDate':'" + jsonCharFilter(dateText(FileUtil::getFileMidified(full))) + "'";
    out += ",'ispass':" + std::to_string(isdir && FileManagerUtil::isPasswordFile(full) ? 1 : 0);
    out +=
        ",'count':" + std::to_string(isdir ? FileUtil::getFilesNumberInFolder(full, true, {}) : 0) +
        "}";
  }
  out += "]";
}

std::string UHTTPConnection::showStatus() {
  auto item = WiFiShare::getDownloadItem(_guid);
  std::uint64_t current = item ? item->_currentSize.load() : 0;
  std::uint64_t total = item ? item->_totalSize : 0;
  std::string status = " ";
  if (total > 0) {
    char buf[64];
    double percent = static_cast<double>(static_cast<std::uint64_t>(
                         static_cast<double>(current) * 1000 / static_cast<double>(total))) /
                     10;
    std::snprintf(buf, sizeof buf, "%.1f%%", percent);
    status = localizedString("Loading...") + " " + buf;
  }
  std::string path;
  if (item) path = relativePathBelow(item->_archivePath, FileUtil::appliationSupportDirectory());
  std::string out = "{";
  out += "'date':'" + dateText(std::chrono::system_clock::now()) + "'";
  out += ",'dir':'" + jsonCharFilter(relativePath_) + "'";
  out += ",'currentSize':" + std::to_string(current);
  out += ",'totalSize':" + std::to_string(total);
  out += ",'status':'" + jsonCharFilter(status) + "'";
  out += ",'path':'" + jsonCharFilter(path) + "'";
  out += ",'isCancel':" + std::to_string(item && item->isCancel ? 1 : 0);
  out += ",'isFinished':" + std::to_string(item && item->isFinishedZip ? 1 : 0) + "}";
  return out;
}

// ---- Actions ----------------------------------------------------------------

std::optional<std::vector<std::string>> UHTTPConnection::bodyNames(bool decodeTwice) {
  auto params = HTTPUtil::parseParams(body_);
  std::vector<std::string> out;
  std::string root = documentsRoot();
  for (const auto& [key, value] : params) {  // keys in sorted order
    if (!value) return std::nullopt;
    std::string name = *value;
    if (decodeTwice) {
      auto again = HTTPUtil::percentDecode(name);
      if (!again) return std::nullopt;
      name = *again;
    }
    if (name.find('\0') != std::string::npos) return std::nullopt;
    std::string full = folderPath_ + "/" + name;
    auto inside = HTTPUtil::resolveInsideRoot(full, root);
    if (!inside) return std::nullopt;
    // Names are the folder's own children, nothing above or further down.
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos) {
      return std::nullopt;
    }
    out.push_back(full);
  }
  return out;
}

std::shared_ptr<HTTPResponse> UHTTPConnection::getLockedItemsResponse(
    const std::vector<std::string>& paths) {
  auto locked = getPasswordsFiles(paths);
  if (locked.size() > 1) {
    return textResponse(getCurrentResonse(
        1, 0,
        localizedString("More than one folder that contains the password, unable to do "
                        "directly!"),
        relativePath_));
  }
  if (locked.size() == 1) {
    auto stored = FileManagerUtil::getFilePassword(locked.front()).value_or("");
    std::string given = query("password");
    if (!stored.empty() && (given.empty() || !FileManagerUtil::isSamePassword(stored, given))) {
      return textResponse(getCurrentResonse(1, 0, "", FileUtil::getFileName(locked.front())));
    }
    WiFiShareBase::addLoginGuid(_guid, relativeKey(locked.front(), documentsRoot()));
  }
  return nullptr;
}

std::shared_ptr<HTTPResponse> UHTTPConnection::getDeleteResponse() {
  auto names = bodyNames(true);
  if (!names) return nullptr;
  if (auto blocked = getLockedItemsResponse(*names)) return blocked;
  for (const auto& path : *names) FileManagerUtil::removePath(path);
  return textResponse(actionList());
}

std::shared_ptr<HTTPResponse> UHTTPConnection::getCreateDirResponse() {
  auto params = HTTPUtil::parseParams(body_);
  for (const auto& [key, value] : params) {
    if (!value) return nullptr;
    std::string name = UploadLineScanner::uploadLeafName(*value);
    if (name.empty()) return nullptr;
    std::string target = FileUtil::getCreateFolderName(folderPath_, name);
    if (target.empty() || !HTTPUtil::resolveInsideRoot(target, documentsRoot())) return nullptr;
    std::error_code ec;
    fs::create_directory(target, ec);
  }
  return textResponse(actionList());
}

std::shared_ptr<HTTPResponse> UHTTPConnection::getZipResponse() {
  auto names = bodyNames(true);
  if (!names) return nullptr;
  if (auto blocked = getLockedItemsResponse(*names)) return blocked;
  startZip(*names);
  return textResponse(getCurrentResonse(1, 1, "", relativePath_));
}

void UHTTPConnection::startZip(const std::vector<std::string>& files) {
  std::lock_guard lock(zipMutex_);
  auto running = std::make_shared<std::atomic<bool>>(true);
  zipRunning_ = running;
  std::string guid = _guid;
  CancellableThread::startDetached([files, guid, running] {
    CancellationToken token;
    CurrentCancellationScope scope(token);
    auto& hooks = ShareHooks::shared();
    if (hooks.unLockScreen) hooks.unLockScreen();
    auto observer = NotificationCenter::defaultCenter().addObserver(
        notifications::SystemCancelWifiThread, [token, guid](const auto& n) {
          const std::string* who = std::any_cast<std::string>(&n.object);
          if (!who || who->empty() || *who == guid) token.cancel();
        });
    // Something for a status poll to show at once.
    WiFiShare::addDownloadItem(WifiDownloadItem::instanceWithPath(
        (fs::path(FileUtil::tempDirectory()) / "zip").string(), guid, 1024));
    std::uint64_t total = FileUtil::getFileSizeFiles(files);
    std::string archive;
    if (!files.empty() && !token.isCancelled()) {
      std::string folder = (fs::path(WiFiShare::zipDirectory()) / HTTPUtil::uuidString()).string();
      std::error_code ec;
      fs::create_directories(folder, ec);
      archive =
          folder + "/" + FileUtil::getFileNameNoExtension(FileUtil::getFileName(files[0])) + ".zip";
      WiFiShare::addDownloadItem(WifiDownloadItem::instanceWithPath(archive, guid, total));
      ZipProgress progress(guid);
      UZipFileArchive::zipFiles(files, &progress, archive,
                                FileUtil::getFileDirectory(files.back()));
    }
    bool cancelled = token.isCancelled();
    NotificationCenter::defaultCenter().removeObserver(observer);
    if (hooks.lockScreen) hooks.lockScreen();
    if (auto item = WiFiShare::getDownloadItem(guid)) item->isCancel = cancelled;
    WiFiShare::updateDownloaditemFinish(guid);
    if (cancelled && !archive.empty()) {
      std::error_code ec;
      fs::remove_all(FileUtil::getFileDirectory(archive), ec);
    }
    running->store(false);
  });
}

void UHTTPConnection::cancelZip() {
  std::lock_guard lock(zipMutex_);
  if (zipRunning_ && zipRunning_->load()) {
    NotificationCenter::defaultCenter().post(notifications::SystemCancelWifiThread,
                                             std::string(_guid));
  }
}

// ---- Dispatch ---------------------------------------------------------------

std::shared_ptr<HTTPResponse> UHTTPConnection::textResponse(std::string text) {
  return std::make_shared<UHTTPDataResponse>(std::move(text));
}

std::shared_ptr<HTTPResponse> UHTTPConnection::indexPage() {
  return HTTPConnection::httpResponseForMethod("GET", "/");
}

std::shared_ptr<HTTPResponse> UHTTPConnection::fileResponse(const std::string& path,
                                                            bool download) {
  auto r = HTTPFileResponse::create(path, weak_from_this());
  if (!r) return nullptr;
  // Shared files are the user's, not ours: a page among them runs with no
  // rights over this site.
  r->setHeaders({{"Content-Security-Policy", "sandbox"}});
  isDownload_ = download;
  return r;
}

std::shared_ptr<HTTPResponse> UHTTPConnection::httpResponseForMethod(const std::string& method,
                                                                     const std::string& uri) {
  if (method == "POST") {
    if (formTooLarge_) return std::make_shared<HTTPErrorResponse>(400);
    if (!pathValid_) return nullptr;
    if (isFormBody_ && !isPathUnlocked(relativePath_)) {
      return textResponse(getCurrentResonse(1, 0, "", relativePath_));
    }
    if (type_ == "delete") return getDeleteResponse();
    if (type_ == "createdir") return getCreateDirResponse();
    if (type_ == "zip") return getZipResponse();
    return indexPage();
  }
  if (type_ == "list") {
    if (!pathValid_) return nullptr;
    cancelZip();
    if (query("isFinished") == "0") return textResponse("{}");
    return textResponse(actionList());
  }
  if (type_ == "upload" || type_ == "child") {
    cancelZip();
    return indexPage();
  }
  if (type_ == "file" || type_ == "downloadtemp") {
    if (!pathValid_ || !isPathUnlocked(relativePath_)) return nullptr;
    return fileResponse(realPath_, type_ == "downloadtemp");
  }
  if (type_ == "supportfile") {
    std::string base;
    std::string below;
    if (relativePath_.rfind("/Thumbnails/", 0) == 0) {
      base = FileManagerUtil::thumbnailDirectory();
      below = relativePath_.substr(11);
    } else {
      std::string zipPrefix =
          relativePathBelow(WiFiShare::zipDirectory(), FileUtil::appliationSupportDirectory());
      if (zipPrefix.empty() || relativePath_.rfind(zipPrefix + "/", 0) != 0) return nullptr;
      base = WiFiShare::zipDirectory();
      below = relativePath_.substr(zipPrefix.size());
    }
    auto real = HTTPUtil::resolveInsideRoot(base + below, base);
    if (!real) return nullptr;
    auto r = fileResponse(*real, false);
    isDownload_ = r && relativePath_.rfind("/Thumbnails/", 0) != 0;
    return r;
  }
  if (type_ == "status") {
    if (!query("cancel").empty()) {
      NotificationCenter::defaultCenter().post(notifications::SystemCancelWifiThread,
                                               std::string(_guid));
    }
    return textResponse(showStatus());
  }
  if (auto other = checkOtherActionForMethod(method, uri)) return other;
  return indexPage();
}

std::string UHTTPConnection::preprocessResponse(HTTPMessage& response) {
  if (isDownload_) {
    std::string name = FileUtil::getFileName(relativePath_);
    if (!FileUtil::getFileExtension(name).empty()) {
      response.setHeaderField(
          "Content-Disposition",
          "attachment; filename=\"" + HTTPUtil::percentEscape(name, false) + "\"");
    }
    response.setHeaderField("Content-Type", "application/octet-stream");
  }
  return HTTPConnection::preprocessResponse(response);
}

}  // namespace harbor
