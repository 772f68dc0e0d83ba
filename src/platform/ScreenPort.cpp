#include "platform/ScreenPort.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "platform/Cancellation.h"
#include "platform/MainQueue.h"

namespace harbor {

const char* screenRouteName(ScreenRoute route) {
  switch (route) {
    case ScreenRoute::Preview:
      return "preview";
    case ScreenRoute::HandOver:
      return "handover";
    case ScreenRoute::Print:
      return "print";
    case ScreenRoute::Mail:
      return "mail";
    case ScreenRoute::Editor:
      return "editor";
    case ScreenRoute::Web:
      return "web";
    case ScreenRoute::Image:
      return "image";
    case ScreenRoute::Music:
      return "music";
    case ScreenRoute::Media:
      return "media";
    case ScreenRoute::Epub:
      return "epub";
    case ScreenRoute::Pdf:
      return "pdf";
    case ScreenRoute::Vcf:
      return "vcf";
    case ScreenRoute::Mht:
      return "mht";
  }
  return "";
}

// Unhandled questions answer Cancel, later and on the main queue like any
// answer, so a screen's handler never runs inside its own request.
void IScreenPort::showAlert(const ScreenAlert&, AlertReply reply) {
  if (!reply) return;
  MainQueue::shared().post([reply = std::move(reply)] { reply(kScreenCancel, {}); });
}

void IScreenPort::showSheet(const ScreenSheet&, SheetReply reply) {
  if (!reply) return;
  MainQueue::shared().post([reply = std::move(reply)] { reply(kScreenCancel); });
}

namespace {

std::mutex portMutex;
std::shared_ptr<IScreenPort> processPort;
bool portWasSet = false;

// The answer crosses from the main queue to a waiting worker.
struct Pending {
  std::mutex mutex;
  std::condition_variable answered;
  bool done = false;
  ScreenPort::Answer answer;
};

ScreenPort::Answer waitFor(const std::shared_ptr<Pending>& pending) {
  MainQueue& main = MainQueue::shared();
  if (main.isMainThread()) {
    // Nobody else drives the loop: run it ourselves until the answer comes.
    main.runUntil(
        [&] {
          std::lock_guard lock(pending->mutex);
          return pending->done;
        },
        std::chrono::hours(24 * 365));
  } else {
    std::unique_lock lock(pending->mutex);
    while (!pending->done) {
      if (isCurrentThreadCancelled()) return {};
      pending->answered.wait_for(lock, std::chrono::milliseconds(20));
    }
  }
  std::lock_guard lock(pending->mutex);
  return pending->answer;
}

void deliver(const std::shared_ptr<Pending>& pending, int button,
             const std::vector<std::string>& fields) {
  {
    std::lock_guard lock(pending->mutex);
    if (pending->done) return;
    pending->done = true;
    pending->answer = ScreenPort::Answer{button, fields};
  }
  pending->answered.notify_all();
}

}  // namespace

std::shared_ptr<IScreenPort> ScreenPort::shared() {
  std::lock_guard lock(portMutex);
  if (!processPort) processPort = std::make_shared<IScreenPort>();
  return processPort;
}

bool ScreenPort::set(std::shared_ptr<IScreenPort> port) {
  std::lock_guard lock(portMutex);
  if (portWasSet || !port) return false;
  portWasSet = true;
  processPort = std::move(port);
  return true;
}

ScreenPort::Answer ScreenPort::askAndWait(IScreenPort& port, const ScreenAlert& alert) {
  auto pending = std::make_shared<Pending>();
  MainQueue::shared().post([&port, alert, pending] {
    port.showAlert(alert, [pending](int button, const std::vector<std::string>& fields) {
      deliver(pending, button, fields);
    });
  });
  return waitFor(pending);
}

int ScreenPort::chooseAndWait(IScreenPort& port, const ScreenSheet& sheet) {
  auto pending = std::make_shared<Pending>();
  MainQueue::shared().post([&port, sheet, pending] {
    port.showSheet(sheet, [pending](int row) { deliver(pending, row, {}); });
  });
  return waitFor(pending).button;
}

}  // namespace harbor
