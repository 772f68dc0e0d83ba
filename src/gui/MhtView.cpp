#include "gui/MhtView.h"

#include <QAction>
#include <QPointer>
#include <QToolBar>

#include "gui/MainWindow.h"
#include "gui/QtScreenPort.h"
#include "gui/Text.h"
#include "platform/Strings.h"
#include "viewers/mht/MhtURLProtocol.h"
#include "viewers/mht/MhtViewController.h"

namespace harbor::gui {

// The controller's port: questions over the view, the page into the web view.
class MhtView::Port : public IMhtView {
 public:
  explicit Port(MhtView* view) : view_(view), dialogs_(view) {}
  void loadData(const std::string& data, const std::string& mimeType,
                const std::string& encodingName, const std::string& baseURL) override {
    if (view_) view_->showPage(data, mimeType, encodingName, baseURL);
  }
  void setActionButtonHidden(bool hidden) override {
    if (view_ && view_->action_) view_->action_->setEnabled(!hidden);
  }
  void setTitle(const std::string& title) override {
    if (view_) view_->setWindowTitle(QString::fromStdString(title));
  }
  void setBusy(bool busy) override {
    if (view_) view_->setCursor(busy ? Qt::BusyCursor : Qt::ArrowCursor);
  }
  void showAlert(const ScreenAlert& alert, AlertReply reply) override {
    dialogs_.showAlert(alert, std::move(reply));
  }
  void showSheet(const ScreenSheet& sheet, SheetReply reply) override {
    dialogs_.showSheet(sheet, std::move(reply));
  }
  void dismissSheet() override { dialogs_.dismissSheet(); }
  void showMessage(const std::string&, const std::string& text) override {
    dialogs_.showMessage(text);
  }

 private:
  QPointer<MhtView> view_;
  QtScreenPort dialogs_;
};

MhtView::MhtView(const std::string& path, MainWindow&, QWidget* parent)
    : WebPageView(parent), port_(std::make_unique<Port>(this)) {
  setObjectName(QStringLiteral("mhtView"));
  setProperty("crumb", MainWindow::crumbFor(path));
  action_ = new QAction(loc("Options"), this);
  action_->setObjectName(QStringLiteral("mhtActions"));
  action_->setEnabled(false);
  toolbar()->insertAction(toolbar()->actions().value(0), action_);
  controller_ = MhtViewController::instanceWithPath(path, port_.get());
  connect(action_, &QAction::triggered, this, [this] { controller_->actionButtonPressed(); });
  controller_->viewDidLoad();
}

MhtView::~MhtView() {
  controller_->close();
}

void MhtView::showPage(const std::string& data, const std::string& mimeType,
                       const std::string& encoding, const std::string& baseURL) {
  // The controller names the unpacked folder on disk; the page reads it
  // through the archive scheme so every part passes the handler.
  const QUrl folder(QString::fromStdString(baseURL));
  QString path = folder.path();
  if (!path.endsWith(QLatin1Char('/'))) path += QLatin1Char('/');
  QUrl url;
  url.setScheme(QString::fromLatin1(MhtURLProtocol::kScheme));
  url.setPath(path);
  QByteArray mime = QByteArray::fromStdString(mimeType.empty() ? "text/html" : mimeType);
  if (!encoding.empty()) mime += "; charset=" + QByteArray::fromStdString(encoding);
  MhtSchemeHandler::shared().setRootContent(url, QByteArray::fromStdString(data), mime);
  rootUrl_ = url;
  load(url);
}

}  // namespace harbor::gui
