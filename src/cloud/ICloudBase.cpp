#include "cloud/ICloudBase.h"
#include "cloud/FileCoordinator.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <stdio.h>

#include <filesystem>
#include <thread>

#include "filemanager/FilePropertyCopyURLS.h"
#include "filemanager/FileUtil.h"
#include "platform/Log.h"
#include "platform/MainQueue.h"
#include "platform/Strings.h"

namespace harbor {
namespace fs = std::filesystem;

namespace {

Error fromCode(const std::error_code& ec, const std::string& what) {
  return Error{ICloudBase::kErrorDomain, ec.value(), what + ": " + ec.message()};
}

std::string hiddenTemporaryBeside(const std::string& target) {
  fs::path t(target);
  return (t.parent_path() / (std::string(LocalSyncFolderProvider::kTemporaryPrefix) +
                             detail::makeUUID() + "-" + t.filename().string()))
      .string();
}

// Copies without ever overwriting: a target that exists is an error, as the
// platform's copy has it.
bool copyNew(const std::string& source, const std::string& target, Error* error) {
  std::error_code ec;
  if (fs::exists(fs::symlink_status(target, ec))) {
    if (error) *error = Error{ICloudBase::kErrorDomain, EEXIST, target + " already exists"};
    return false;
  }
  const std::string temp = hiddenTemporaryBeside(target);
  fs::copy(source, temp, fs::copy_options::recursive | fs::copy_options::copy_symlinks, ec);
  if (!ec) fs::rename(temp, target, ec);
  if (ec) {
    std::error_code ignored;
    fs::remove_all(temp, ignored);
    if (error) *error = fromCode(ec, "can not copy " + source);
    return false;
  }
  return true;
}

}  // namespace

bool replaceItemAtomically(const std::string& source, const std::string& target, Error* error) {
  std::error_code ec;
  const std::string temp = hiddenTemporaryBeside(target);
  fs::copy(source, temp, fs::copy_options::recursive | fs::copy_options::copy_symlinks, ec);
  auto failed = [&](const std::string& what) {
    std::error_code ignored;
    fs::remove_all(temp, ignored);
    if (error) *error = fromCode(ec, what);
    return false;
  };
  if (ec) return failed("can not copy " + source);
  const bool targetIsFolder =
      fs::is_directory(fs::symlink_status(target, ec)) && !fs::is_symlink(target, ec);
  if (!targetIsFolder) {
    // rename() replaces a file (or link) in one step.
    fs::rename(temp, target, ec);
    if (ec) return failed("can not replace " + target);
    return true;
  }
  // A folder can't be renamed over a folder with content: the two are
  // exchanged in one step, and the old one, now under the temporary name,
  // goes after.
  if (::renameat2(AT_FDCWD, temp.c_str(), AT_FDCWD, target.c_str(), RENAME_EXCHANGE) == 0) {
    fs::remove_all(temp, ec);
    return true;
  }
  // A file system without exchange: a moment without the target is the
  // lesser harm than failing.
  const std::string old = hiddenTemporaryBeside(target);
  fs::rename(target, old, ec);
  if (ec) return failed("can not replace " + target);
  fs::rename(temp, target, ec);
  if (ec) {
    std::error_code back;
    fs::rename(old, target, back);
    return failed("can not replace " + target);
  }
  fs::remove_all(old, ec);
  return true;
}

ICloudBase::ICloudBase(std::string path, std::string destination, IActionProgress* progressDelegate)
    : _path(std::move(path)),
      _destination(std::move(destination)),
      _progressDelegate(progressDelegate),
      provider_(CloudProvider::shared()) {}

ICloudBase::~ICloudBase() {
  _isCanceled = true;
  timerGeneration_++;
  releaseQuery();
  releaseWorkQueue();
  std::unique_lock lock(pendingMutex_);
  pendingDone_.wait(lock, [this] { return pending_ == 0; });
}

std::string ICloudBase::documentsURL() {
  auto provider = CloudProvider::shared();
  return provider ? provider->documentsURL() : std::string();
}

Error ICloudBase::createErrorWithMsg(const std::string& message, long code) {
  return Error{kErrorDomain, code, message};
}

void ICloudBase::stop(const std::string& message) {
  timerGeneration_++;
  releaseQuery();
  releaseWorkQueue();
  {
    std::lock_guard lock(lock_);
    _isCanceled = true;
    _error = createErrorWithMsg(message, -1);
  }
  finish(_error);
}

bool ICloudBase::isContinuingWaiting() const {
  return _isExecuting && !_isCanceled;
}

void ICloudBase::waitRun() {
  if (!_isUseMainThread) {
    while (isContinuingWaiting()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return;
  }
  while (isContinuingWaiting())
    MainQueue::shared().runUntil([this] { return !isContinuingWaiting(); },
                                 std::chrono::milliseconds(50));
}

void ICloudBase::releaseQuery() {
  std::unique_ptr<MetadataQuery> query;
  {
    std::lock_guard lock(lock_);
    query = std::move(_query);
  }
  if (query) query->stopQuery();
}

void ICloudBase::releaseWorkQueue() {
  std::unique_ptr<OperationQueue> queue;
  {
    std::lock_guard lock(lock_);
    queue = std::move(_workerQueue);
  }
  if (queue) queue->cancelAllOperations();
}

bool ICloudBase::isSuccess() const {
  std::lock_guard lock(lock_);
  return !_error;
}

std::string ICloudBase::errorMessage() const {
  std::lock_guard lock(lock_);
  return _error ? _error->message : std::string();
}

std::optional<Error> ICloudBase::error() const {
  std::lock_guard lock(lock_);
  return _error;
}

void ICloudBase::runInBackground(std::function<void()> work) {
  {
    std::lock_guard lock(pendingMutex_);
    ++pending_;
  }
  OperationQueue::backgroundQueue().addOperation(
      std::make_shared<BlockOperation>([this, work = std::move(work)] {
        if (!_isCanceled) work();
        std::lock_guard lock(pendingMutex_);
        if (--pending_ == 0) pendingDone_.notify_all();
      }));
}

void ICloudBase::createOperationQueue() {
  std::lock_guard lock(lock_);
  if (!_workerQueue) _workerQueue = std::make_unique<OperationQueue>(1, detail::makeUUID());
}

void ICloudBase::createQueryOn(const std::string& path, MetadataQuery::Callback gathering,
                               MetadataQuery::Callback update) {
  releaseQuery();
  std::lock_guard lock(lock_);
  if (_isCanceled || !provider_) return;
  createOperationQueue();
  auto hop = [this](MetadataQuery::Callback cb) -> MetadataQuery::Callback {
    if (!cb) return {};
    return [this, cb](const std::optional<CloudItem>& item) {
      std::lock_guard lock(lock_);
      if (_workerQueue)
        _workerQueue->addOperation(std::make_shared<BlockOperation>([cb, item] { cb(item); }));
    };
  };
  _query = std::make_unique<MetadataQuery>(provider_, path);
  _query->startQuery(hop(std::move(gathering)), hop(std::move(update)));
}

void ICloudBase::finish(std::optional<Error> error) {
  if (finished_.exchange(true)) return;
  {
    std::lock_guard lock(lock_);
    if (!_error) _error = std::move(error);
  }
  auto e = this->error();
  if (_progressDelegate) _progressDelegate->onFinishActionProgress(_path, _destination, _tag, e);
  if (_finishBlock) _finishBlock(_path, _destination, _tag, e);
  _isExecuting = false;
}

void ICloudBase::startTimer(std::function<void()> fired) {
  const auto generation = ++timerGeneration_;
  runInBackground([this, generation, fired = std::move(fired)] {
    std::this_thread::sleep_for(kRequeryInterval);
    if (generation == timerGeneration_ && !_isCanceled) fired();
  });
}

void ICloudBase::stopTimer() {
  timerGeneration_++;
}

void ICloudBase::waitForItem(const std::string& path) {
  createQueryOn(path,
                [this, path](const std::optional<CloudItem>& item) {
                  if (item) {
                    stopTimer();
                    finish(std::nullopt);
                    return;
                  }
                  startTimer([this, path] { waitForItem(path); });
                },
                {});
}

// ---- delete ----------------------------------------------------------------

std::unique_ptr<ICloudDelete> ICloudDelete::instanceWithPath(const std::string& path,
                                                             IActionProgress* progressDelegate) {
  return std::make_unique<ICloudDelete>(path, "", progressDelegate);
}

void ICloudDelete::start(std::any tag) {
  _tag = std::move(tag);
  _isExecuting = true;
  runInBackground([this] {
    Error lockError;
    std::optional<Error> failure;
    bool locked = FileCoordinator::coordinateWriting(
        _path, FileCoordinator::kForDeleting,
        [&](const std::string& url) {
          std::error_code ec;
          // remove_all takes a link away, never what it points at.
          fs::remove_all(url, ec);
          if (ec) failure = createErrorWithMsg(localizedString("Can not delete file"), -1);
        },
        &lockError);
    finish(locked ? failure : std::optional<Error>(lockError));
  });
}

// ---- download --------------------------------------------------------------

std::unique_ptr<ICloudDownload> ICloudDownload::instanceWithPath(
    const std::string& path, const std::string& destination, IActionProgress* progressDelegate) {
  return std::make_unique<ICloudDownload>(path, destination, progressDelegate);
}

void ICloudDownload::start(std::any tag) {
  _tag = std::move(tag);
  _isExecuting = true;
  createOperationQueue();
  runInBackground([this] {
    auto item = provider_ ? provider_->itemAt(_path) : std::nullopt;
    if (!item) {
      finish(createErrorWithMsg(localizedString("Not found file"), -1));
      return;
    }
    if (item->downloaded) {
      copyToDestination();
      return;
    }
    usedQuery_ = true;
    Error error;
    if (!provider_->startDownloading(_path, &error)) {
      finish(error);
      return;
    }
    auto update = [this](const std::optional<CloudItem>& i) { liveUpdate(i); };
    createQueryOn(_path, update, update);
  });
}

void ICloudDownload::liveUpdate(const std::optional<CloudItem>& item) {
  if (!item) {
    releaseQuery();
    finish(createErrorWithMsg(localizedString("Not found file"), -1));
    return;
  }
  if (item->downloaded) {
    releaseQuery();
    copyToDestination();
    return;
  }
  if (_progressDelegate)
    _progressDelegate->progressUpdateCurrentSize(
        static_cast<std::uint64_t>(item->percentDownloaded / 100.0 * double(item->totalBytes)));
}

void ICloudDownload::copyToDestination() {
  if (error()) return;
  Error error;
  bool copied = false;
  bool locked = FileCoordinator::coordinateReading(
      _path, FileCoordinator::kNone, _destination, FileCoordinator::kNone,
      [&](const std::string& from, const std::string& to) { copied = copyNew(from, to, &error); },
      &error);
  if (!locked || !copied) {
    finish(error);
    return;
  }
  if (_progressDelegate) _progressDelegate->progressFinished(FileUtil::folderSize(_destination));
  finish(std::nullopt);
}

// ---- upload ----------------------------------------------------------------

std::unique_ptr<ICloudUpload> ICloudUpload::instanceWithPath(const std::string& path,
                                                             const std::string& destination,
                                                             IActionProgress* progressDelegate) {
  return std::make_unique<ICloudUpload>(path, destination, progressDelegate);
}

void ICloudUpload::start(std::any tag) {
  _tag = std::move(tag);
  _isExecuting = true;
  createOperationQueue();
  runInBackground([this] {
    Error error;
    bool copied = false;
    bool locked = FileCoordinator::coordinateReading(
        _path, FileCoordinator::kNone, _destination, FileCoordinator::kForReplacing,
        [&](const std::string& from, const std::string& to) {
          copied = replaceItemAtomically(from, to, &error);
        },
        &error);
    if (!locked || !copied) {
      finish(error);
      return;
    }
    createQuery();
  });
}

void ICloudUpload::createQuery() {
  createQueryOn(
      _destination,
      [this](const std::optional<CloudItem>& item) {
        if (item) {
          stopTimer();
          liveUpdate(item);
          return;
        }
        releaseQuery();
        startTimer([this] { createQuery(); });
      },
      [this](const std::optional<CloudItem>& item) { liveUpdate(item); });
}

void ICloudUpload::liveUpdate(const std::optional<CloudItem>& item) {
  if (!item) return;
  const std::uint64_t size = FileUtil::folderSize(_path);
  if (item->uploaded) {
    releaseQuery();
    if (_progressDelegate) _progressDelegate->progressFinished(size);
    finish(std::nullopt);
    return;
  }
  if (_progressDelegate)
    _progressDelegate->progressUpdateCurrentSize(
        static_cast<std::uint64_t>(double(size) / 100.0 * item->percentUploaded));
}

// ---- create folder ---------------------------------------------------------

std::unique_ptr<ICloudCreateDir> ICloudCreateDir::instanceWithPath(
    const std::string& path, IActionProgress* progressDelegate) {
  return std::make_unique<ICloudCreateDir>(path, "", progressDelegate);
}

void ICloudCreateDir::start(std::any tag) {
  _tag = std::move(tag);
  _isExecuting = true;
  createOperationQueue();
  runInBackground([this] {
    std::error_code ec;
    fs::create_directories(_path, ec);
    if (ec || !fs::is_directory(_path)) {
      finish(fromCode(ec ? ec : std::make_error_code(std::errc::not_a_directory),
                      "can not create " + _path));
      return;
    }
    waitForItem(_path);
  });
  waitRun();
  stopTimer();
}

// ---- move ------------------------------------------------------------------

std::unique_ptr<ICloudMove> ICloudMove::instanceWithPath(const std::string& path,
                                                         const std::string& destination,
                                                         IActionProgress* progressDelegate) {
  return std::make_unique<ICloudMove>(path, destination, progressDelegate);
}

void ICloudMove::start(std::any tag) {
  _tag = std::move(tag);
  _isExecuting = true;
  createOperationQueue();
  runInBackground([this] {
    Error error;
    bool moved = false;
    bool locked = FileCoordinator::coordinateWriting(
        _path, FileCoordinator::kForMoving, _destination, FileCoordinator::kForReplacing,
        [&](const std::string& from, const std::string& to) {
          std::error_code ec;
          if (fs::exists(fs::symlink_status(to, ec))) {
            error = Error{kErrorDomain, EEXIST, to + " already exists"};
            return;
          }
          fs::rename(from, to, ec);
          if (ec) error = fromCode(ec, "can not move " + from);
          moved = !ec;
        },
        &error);
    if (!locked || !moved) {
      finish(error);
      return;
    }
    waitForItem(_destination);
  });
  waitRun();
  stopTimer();
}

}  // namespace harbor
