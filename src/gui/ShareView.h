#pragma once

#include <QCheckBox>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QTimer>
#include <functional>
#include <memory>

#include "app/HarborFileShareController.h"
#include "net/share/WiFiShare.h"

namespace harbor::gui {

class MainWindow;

// The sharing screen: the web file manager and WebDAV started and stopped
// from here, their addresses as links and the web one as a QR code for a
// phone's camera, and the switch that keeps sharing on at launch.
class ShareView : public QWidget {
  Q_OBJECT
 public:
  // `window` may be null (tests): the cloud row then opens nothing.
  ShareView(std::shared_ptr<HarborFileShareController> controller,
            std::shared_ptr<WebDavShare> webDav, MainWindow* window, QWidget* parent = nullptr);
  ~ShareView() override;

  HarborFileShareController& controller() { return *controller_; }
  // The address the QR code holds (empty while there is none to show).
  QString qrAddress() const { return qrAddress_; }
  // Redraws from the controller's rows and the servers' state.
  void refresh();

 protected:
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;

 private:
  void toggleWeb();
  void toggleWebDav();
  QString webDavAddress() const;

  std::shared_ptr<HarborFileShareController> controller_;
  std::shared_ptr<WebDavShare> webDav_;
  QPointer<MainWindow> window_;
  QString qrAddress_;

  QLabel* webState_;
  QPushButton* webToggle_;
  QLabel* webAddress_;
  QLabel* networkHint_;
  QLabel* qr_;
  QLabel* qrCaption_;
  QCheckBox* autoOpen_;
  QLabel* davState_;
  QPushButton* davToggle_;
  QLabel* davAddress_;
  QLabel* davAuth_;
  QLabel* error_;
  QPushButton* cloud_;
};

// The WebDAV share of this process, made on first use.
std::shared_ptr<WebDavShare> desktopWebDavShare();

// The share follows the application to the background and back. A minimised
// window counts as background only once no upload is in progress, so that
// nothing a browser is sending is lost; until then it asks again.
class ShareFollower : public QObject {
  Q_OBJECT
 public:
  struct Hooks {
    std::function<void()> enterBackground;
    std::function<void()> enterForeground;
    std::function<bool()> uploadsInProgress;
  };
  explicit ShareFollower(Hooks hooks, QObject* parent = nullptr);

  void setBackground(bool background);
  bool isInBackground() const { return inBackground_; }
  // Watches top-level windows being minimised and restored.
  bool eventFilter(QObject* watched, QEvent* event) override;

  static constexpr int kRetryMs = 500;

 private:
  void tryEnterBackground();

  Hooks hooks_;
  bool wantBackground_ = false;
  bool inBackground_ = false;
  QTimer retry_;
};

void registerShareViews();

}  // namespace harbor::gui
