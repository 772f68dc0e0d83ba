#include "filemanager/watcher/DirectoryWatcher.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>

#include "platform/Log.h"
#include "platform/MainQueue.h"

namespace harbor {

// What the reader thread shares with the main queue: whether a callback is
// already on its way, and whether the watch still stands.
struct DirectoryWatcher::Delivery {
  std::mutex mutex;
  DirectoryWatcher* owner = nullptr;  // null once invalidated
  bool pending = false;
};

namespace {
// Entries of the folder itself appear, go or change names; the folder going
// away counts as well. Writes into files and anything deeper do not.
constexpr std::uint32_t kMask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr std::uint32_t kContentMask = IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB;
}  // namespace

const std::uint32_t DirectoryWatcher::kWatchedEvents = kMask;
const std::uint32_t DirectoryWatcher::kContentEvents = kContentMask;

std::unique_ptr<DirectoryWatcher> DirectoryWatcher::watchFolderWithPath(
    const std::string& path, DirectoryWatcherDelegate* delegate, bool watchContents) {
  if (path.empty() || !delegate) return nullptr;
  auto watcher = std::make_unique<DirectoryWatcher>(path, delegate, watchContents);
  if (!watcher->startMonitoring()) return nullptr;
  return watcher;
}

DirectoryWatcher::DirectoryWatcher(std::string path, DirectoryWatcherDelegate* delegate,
                                   bool watchContents)
    : folderPath_(std::move(path)),
      delegate_(delegate),
      mask_(watchContents ? kMask | kContentMask : kMask) {}

DirectoryWatcher::~DirectoryWatcher() {
  invalidate();
}

bool DirectoryWatcher::startMonitoring() {
  if (isActive() || !delegate_) return false;
  int fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd < 0) {
    HB_LOG("DirectoryWatcher", std::string("inotify: ") + std::strerror(errno));
    return false;
  }
  if (::inotify_add_watch(fd, folderPath_.c_str(), mask_) < 0) {
    HB_LOG("DirectoryWatcher", folderPath_ + ": " + std::strerror(errno));
    ::close(fd);
    return false;
  }
  int stop = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (stop < 0) {
    ::close(fd);
    return false;
  }
  auto delivery = std::make_shared<Delivery>();
  delivery->owner = this;
  try {
    reader_ = std::thread(
        [this, fd, stop, mask = mask_, delivery] { readLoop(fd, stop, mask, delivery); });
  } catch (const std::system_error& e) {
    HB_LOG("DirectoryWatcher", std::string("cannot start a thread: ") + e.what());
    ::close(stop);
    ::close(fd);
    return false;
  }
  inotifyFd_ = fd;
  stopFd_ = stop;
  delivery_ = std::move(delivery);
  return true;
}

void DirectoryWatcher::invalidate() {
  if (!isActive()) return;
  {
    std::lock_guard lock(delivery_->mutex);
    delivery_->owner = nullptr;
  }
  std::uint64_t one = 1;
  [[maybe_unused]] ssize_t n = ::write(stopFd_, &one, sizeof one);
  if (reader_.joinable()) reader_.join();
  ::close(inotifyFd_);
  ::close(stopFd_);
  inotifyFd_ = -1;
  stopFd_ = -1;
  delivery_.reset();
}

void DirectoryWatcher::readLoop(int inotifyFd, int stopFd, std::uint32_t mask,
                                std::shared_ptr<Delivery> delivery) {
  alignas(inotify_event) char buffer[16 * 1024];
  pollfd fds[2] = {{inotifyFd, POLLIN, 0}, {stopFd, POLLIN, 0}};
  for (;;) {
    if (::poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      HB_LOG("DirectoryWatcher", std::string("poll: ") + std::strerror(errno));
      return;
    }
    if (fds[1].revents != 0) return;
    if ((fds[0].revents & POLLIN) == 0) continue;
    bool changed = false;
    // Drain everything there is: a burst of changes makes one callback.
    for (;;) {
      ssize_t n = ::read(inotifyFd, buffer, sizeof buffer);
      if (n <= 0) break;
      for (char* p = buffer; p < buffer + n;) {
        auto* event = reinterpret_cast<inotify_event*>(p);
        if (event->mask & (mask | IN_Q_OVERFLOW)) changed = true;
        p += sizeof(inotify_event) + event->len;
      }
    }
    if (!changed) continue;
    {
      std::lock_guard lock(delivery->mutex);
      if (delivery->pending || !delivery->owner) continue;
      delivery->pending = true;
    }
    MainQueue::shared().post([delivery] {
      DirectoryWatcher* owner;
      {
        std::lock_guard lock(delivery->mutex);
        delivery->pending = false;
        owner = delivery->owner;
      }
      if (owner) owner->delegate_->directoryDidChange(*owner);
    });
  }
}

}  // namespace harbor
