#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/Cancellation.h"
#include "platform/ScreenPort.h"

namespace harbor {

// What the archive screen shows beyond the common port: a web view.
class IMhtView : public IScreenPort {
 public:
  // Shows `data` as a document of `mimeType` in `encodingName`, resolving
  // its references against `baseURL`.
  virtual void loadData(const std::string& data, const std::string& mimeType,
                        const std::string& encodingName, const std::string& baseURL) = 0;
  virtual void setActionButtonHidden(bool) {}
};

// Set by the application at launch: the browser sits above the viewers.
struct MhtHooks {
  // The folder the file browser shows; the document root when unset.
  static std::function<std::string()> browserFolder;
};

// The web archive screen: unpacks the archive on a worker (one archive on
// disk at a time), shows its root page, and can keep the unpacked files as
// source files next to the user's other documents.
class MhtViewController : public std::enable_shared_from_this<MhtViewController> {
 public:
  static constexpr int kTagAction = 3100;

  static std::shared_ptr<MhtViewController> instanceWithPath(const std::string& path,
                                                             IMhtView* view);
  ~MhtViewController();

  // Titles the screen with the file's name and starts unpacking.
  void viewDidLoad();
  // Leaving the screen stops the worker; a late result is dropped.
  void close();
  // Hidden while the network indicator runs.
  bool isActionButtonHidden() const { return _loading; }
  void actionButtonPressed();
  // Copies the unpacked folder into the browser's folder under the
  // archive's name (free); the new folder's path, empty on failure.
  std::string convertToSourceFiles();

  bool _actionSheet = false;
  std::string _tempPath;
  std::optional<CancellationToken> _currentThread;

 private:
  MhtViewController(std::string path, IMhtView* view);
  void setLoading(bool loading);

  std::string _filePath;
  IMhtView* _view = nullptr;
  bool _loading = false;
};

}  // namespace harbor
