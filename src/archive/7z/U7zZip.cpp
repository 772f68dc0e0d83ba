#include "archive/7z/U7zZip.h"

#include <sys/stat.h>

#include <filesystem>

#include "filemanager/FileUtil.h"
#include "filemanager/IActionProgress.h"
#include "platform/Cancellation.h"
#include "platform/Log.h"

namespace harbor {
namespace fs = std::filesystem;

U7zZip::U7zZip(std::string filePath, IActionProgress* delegate, ZipPropertyOptions options)
    : ZipBase(std::move(filePath), delegate, std::move(options)) {
  initParameters();
}

void U7zZip::initParameters() {
  _writer = std::make_unique<Archive7zWriter>(filePath_);
  _writer->setDelegate(this);
  _writer->setPasswordGetter([this] { return password_; });
  _writer->setMethod(1);
  _writer->setSolid(true);
  _writer->setCompressionLevel(9);
  _writer->setEncodeContent(true);
  _writer->setEncodeHeader(true);
  _writer->setCompressHeader(true);
  _writer->setCompressHeaderFull(true);
  _writer->setWriteModificationTime(false);
  _writer->setWriteCreationTime(false);
  _writer->setWriteAccessTime(false);
  std::optional<Error> error;
  if (!_writer->open(&error)) {
    HB_LOG("U7zZip", "initParameters cannot open " + filePath_);
    error_ = error;
    _writer.reset();
  }
}

void U7zZip::zip(const std::string& path) {
  if (!_writer) return;
  struct stat st {};
  if (::lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
    zipFolder(path);
  else
    zipFileToDesFile(path);
}

void U7zZip::zipFolder(const std::string& path) {
  std::error_code ec;
  std::vector<std::string> children;
  for (const auto& e : fs::directory_iterator(path, ec)) {
    const std::string name = e.path().filename().string();
    if (propertyOptions_.isIgnoreHiddenFile && !name.empty() && name.front() == '.') continue;
    children.push_back(e.path().string());
  }
  // A folder with content is implied by it; only an empty one needs an entry.
  if (children.empty()) {
    zipOnlyFolder(path);
    return;
  }
  std::sort(children.begin(), children.end());
  for (const auto& child : children) {
    if (isCurrentThreadCancelled()) return;
    zip(child);
  }
}

void U7zZip::zipOnlyFolder(const std::string& path) {
  const std::string rel = getRelativePath(path);
  if (!rel.empty() && !_writer->addPath(path, rel)) zipMsg_.push_back("Cannot add '" + rel + "'");
}

void U7zZip::zipFileToDesFile(const std::string& path) {
  const std::string rel = getRelativePath(path);
  if (rel.empty()) return;
  struct stat st {};
  if (::lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode))
    total_ += static_cast<std::uint64_t>(st.st_size);
  if (!_writer->addPath(path, rel)) zipMsg_.push_back("Cannot add '" + rel + "'");
}

void U7zZip::finished() {
  if (!_writer) return;
  if (!_writer->write()) {
    error_ = _writer->lastError();
    if (error_) zipMsg_.push_back(error_->message);
  }
}

void U7zZip::onArchive7zWriterWriteProgress(Archive7zWriter&, float fraction) {
  if (delegate_)
    delegate_->progressUpdateCurrentSize(static_cast<std::uint64_t>(fraction * double(total_)));
}

}  // namespace harbor
