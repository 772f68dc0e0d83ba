#pragma once

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "browser/FileManagerController.h"
#include "browser/RecordingPort.h"
#include "platform/MainQueue.h"
#include "support/TestSupport.h"

namespace harbor::test {

namespace fs = std::filesystem;

// A document root of its own, a recording port, and a way to let a screen's
// worker and the main queue run until they are done or a question waits.
class BrowserTest : public TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    MainQueue::shared().adoptCurrentThread();
    fs::create_directories(root());
    port = std::make_shared<RecordingPort>();
  }
  void TearDown() override {
    FileManagerController::setReaderMaker({});
    // Screens hold the port and the port holds what was pushed.
    port->pushed.clear();
    drain();
    TempHome::TearDown();
  }

  std::string docs(const std::string& relative = {}) const {
    return relative.empty() ? root().string() : (root() / relative).string();
  }
  void write(const std::string& relative, const std::string& content) const {
    fs::create_directories((root() / relative).parent_path());
    std::ofstream(root() / relative, std::ios::binary) << content;
  }

  template <class T, class... Args>
  std::shared_ptr<T> screen(Args&&... args) {
    auto s = std::make_shared<T>(std::forward<Args>(args)...);
    s->setPort(port);
    s->viewDidLoad();
    return s;
  }

  // Until no worker of `s` runs (or a question waits), then what is queued.
  void settle(FileManagerBaseController& s) {
    s.waitForWorker([&] { return port->openAlert || port->openSheet; });
    for (int i = 0; i < 5; ++i) MainQueue::shared().runPending();
  }
  void drain() {
    for (int i = 0; i < 5; ++i) MainQueue::shared().runPending();
  }

  std::shared_ptr<RecordingPort> port;
};

}  // namespace harbor::test
