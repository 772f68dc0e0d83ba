#pragma once

#include <memory>
#include <string>

#include "gui/WebPageView.h"

namespace harbor {
class MhtViewController;
}

namespace harbor::gui {

class MainWindow;

// A web archive: the controller unpacks it, the page reads its parts through
// the archive scheme, and the network stays shut until the user opens it.
class MhtView : public WebPageView {
  Q_OBJECT
 public:
  MhtView(const std::string& path, MainWindow& window, QWidget* parent = nullptr);
  ~MhtView() override;

  MhtViewController& controller() const { return *controller_; }
  // The address the root page was shown under, empty until then.
  QUrl rootUrl() const { return rootUrl_; }

 private:
  class Port;
  friend class Port;
  void showPage(const std::string& data, const std::string& mimeType, const std::string& encoding,
                const std::string& baseURL);

  std::unique_ptr<Port> port_;
  std::shared_ptr<MhtViewController> controller_;
  QAction* action_ = nullptr;
  QUrl rootUrl_;
};

}  // namespace harbor::gui
