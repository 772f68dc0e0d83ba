#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "net/share/WiFiShare.h"
#include "platform/NotificationCenter.h"

namespace harbor {

// The sharing screen: starts the share while it shows (and after, when the
// user keeps sharing on), and lists the address to type in a browser.
class FileShareController {
 public:
  using Row = std::map<std::string, std::string>;  // "control_row_text", ...
  struct Section {
    std::string title;  // "control_section_title"
    std::vector<Row> rows;
  };

  explicit FileShareController(std::shared_ptr<WiFiShare> httpServer);
  virtual ~FileShareController();

  void viewDidLoad();
  void viewWillAppear();
  void viewDidDisappear();
  void loadPreferences();
  // "http://ADDRESS:PORT"; empty without an address.
  std::string address() const;
  static bool IsWIFIConnection();
  // The web file manager share this screen drives.
  const std::shared_ptr<WiFiShare>& httpServer() const { return httpServer_; }

  const std::string& title() const { return title_; }
  const std::vector<Section>& sectionArray() const { return sectionArray_; }
  // The view's redraw; called on every change of the share.
  std::function<void()> reloadData;
  // Where the address comes from (tests replace it).
  std::function<std::string()> localAddress = [] { return WiFiShareBase::address(); };

 protected:
  virtual bool isSupportICloudDrive() { return false; }

 private:
  std::shared_ptr<WiFiShare> httpServer_;
  std::string title_;
  std::vector<Section> sectionArray_;
  NotificationCenter::Token observer_ = 0;
  NotificationCenter::Token networkObserver_ = 0;
  // Work posted to the main queue checks it, as the screen may be gone by then.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace harbor
