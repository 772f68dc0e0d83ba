#pragma once

#include <QPointer>
#include <QWidget>
#include <functional>
#include <string>

#include "platform/ScreenPort.h"

class QMenu;

namespace harbor::gui {

// Routes MainQueue posts into the Qt event loop of the calling (main) thread.
void installMainQueueDispatcher();

// The widgets behind the screen port: alerts as dialogs, sheets as menus,
// notices in the window. Screens hold one and forward their port calls to it.
class QtScreenPort {
 public:
  explicit QtScreenPort(QWidget* host) : host_(host) {}

  // Dialog object names carry the controller's tag ("alert1001") and each
  // field's placeholder, so the answer goes back as the controller asked.
  void showAlert(const ScreenAlert& alert, IScreenPort::AlertReply reply);
  void showSheet(const ScreenSheet& sheet, IScreenPort::SheetReply reply);
  void dismissSheet();
  void showMessage(const std::string& text);

  // Where a notice goes: the window's status line, set by the window.
  static std::function<void(const QString&)>& noticeSink();
  // Called when an alert is closed without an answer.
  void setOnDropped(std::function<void()> dropped) { onDropped_ = std::move(dropped); }

 private:
  QPointer<QWidget> host_;
  QPointer<QMenu> sheet_;
  std::function<void()> onDropped_;
};

}  // namespace harbor::gui
