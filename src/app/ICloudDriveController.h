#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "cloud/DocumentBrowserQuery.h"
#include "platform/ScreenPort.h"

namespace harbor {

// The cloud drive as the root browser opens it: one folder of the drive a
// screen, folders entered by a tap, a file handed to `onPickFile` (the
// browser downloads it: to open it, or to import it into its folder).
class ICloudDriveController : public ViewController,
                              public std::enable_shared_from_this<ICloudDriveController> {
 public:
  using PickFile = std::function<void(const std::string& cloudPath, int depth)>;

  // `folder` is a full path in the drive; empty for its documents folder.
  ICloudDriveController(std::string folder, bool isImport, PickFile onPickFile, int depth = 1);
  std::string className() const override { return "ICloudDriveController"; }

  void setPort(std::shared_ptr<IScreenPort> port) { _port = std::move(port); }
  // Lists the folder and sets the title: "Cloud Drive" at the top.
  void viewDidLoad();

  const std::string& folder() const { return _folder; }
  // The folder below the drive's documents: "/" at the top, "/a/b" below.
  std::string relativeFolder() const;
  bool isImport() const { return _isImport; }
  // How many drive screens are on the stack down to and with this one.
  int depth() const { return _depth; }
  const std::vector<DocumentBrowserModelObject>& items() const { return _items; }
  // A tap on the item named `name`; false when there is none.
  bool tapRow(const std::string& name);

 private:
  IScreenPort& port() const;

  std::string _folder;
  bool _isImport;
  PickFile _onPickFile;
  int _depth;
  std::shared_ptr<IScreenPort> _port;
  std::vector<DocumentBrowserModelObject> _items;
};

}  // namespace harbor
