#include "gui/LockView.h"

#include <QApplication>
#include <QFrame>
#include <QHBoxLayout>
#include <QPixmap>
#include <QVBoxLayout>

#include "app/LocalLoginController.h"
#include "gui/MainWindow.h"
#include "gui/PasswordSettingsView.h"
#include "gui/Screens.h"
#include "gui/Text.h"
#include "gui/Theme.h"
#include "platform/Resources.h"
#include "platform/Strings.h"

namespace harbor::gui {

namespace {

// The header and the messages are shown on the lock itself, not in the
// status line of a window whose content is hidden.
class LockPort : public WindowPort {
 public:
  LockPort(LockView* view, MainWindow& window) : WindowPort(view, window), view_(view) {}
  void setTitle(const std::string& title) override {
    if (view_) view_->setHeader(title);
  }
  void showMessage(const std::string&, const std::string& text) override {
    if (view_) view_->showMessage(text);
  }

 private:
  QPointer<LockView> view_;
};

}  // namespace

LockView::LockView(std::shared_ptr<LocalLoginController> controller, MainWindow& window)
    : QWidget(&window), controller_(std::move(controller)) {
  setObjectName(QStringLiteral("lockView"));
  // The window shows this over everything else rather than as its root.
  setProperty("coversWindow", true);
  setAutoFillBackground(true);

  auto* card = new QFrame(this);
  card->setObjectName(QStringLiteral("lockCard"));
  card->setFrameShape(QFrame::StyledPanel);
  card->setMinimumWidth(340);
  card->setMaximumWidth(420);
  auto* form = new QVBoxLayout(card);
  form->setContentsMargins(28, 24, 28, 24);
  form->setSpacing(10);

  if (auto icon = resourcePath("desktop/harbor-128.png")) {
    auto* picture = new QLabel(card);
    const qreal ratio = devicePixelRatioF();
    QPixmap pixmap(QString::fromStdString(icon->string()));
    pixmap = pixmap.scaled(QSize(64, 64) * ratio, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    pixmap.setDevicePixelRatio(ratio);
    picture->setPixmap(pixmap);
    picture->setAlignment(Qt::AlignCenter);
    form->addWidget(picture);
  }
  auto* name = new QLabel(QApplication::applicationDisplayName(), card);
  QFont big = name->font();
  big.setPointSizeF(big.pointSizeF() * 1.6);
  big.setBold(true);
  name->setFont(big);
  name->setAlignment(Qt::AlignCenter);
  form->addWidget(name);

  header_ = new QLabel(card);
  header_->setObjectName(QStringLiteral("lockHeader"));
  header_->setAlignment(Qt::AlignCenter);
  header_->setWordWrap(true);
  form->addWidget(header_);
  form->addSpacing(6);

  const std::string label = controller_->labels.empty() ? "Password" : controller_->labels.front();
  auto* fieldLabel = new QLabel(loc(label), card);
  form->addWidget(fieldLabel);
  password_ = new QLineEdit(card);
  password_->setObjectName(QStringLiteral("lockPassword"));
  password_->setEchoMode(QLineEdit::Password);
  if (!controller_->placeholders.empty())
    password_->setPlaceholderText(loc(controller_->placeholders.front()));
  fieldLabel->setBuddy(password_);
  form->addWidget(password_);

  message_ = new QLabel(card);
  message_->setObjectName(QStringLiteral("lockMessage"));
  message_->setWordWrap(true);
  message_->setAlignment(Qt::AlignCenter);
  QPalette warn = message_->palette();
  // A red that stays readable on the night palette.
  warn.setColor(QPalette::WindowText, isDarkDesktop(QApplication::palette())
                                          ? QColor(0xff, 0x80, 0x72)
                                          : QColor(0xc4, 0x2b, 0x1f));
  message_->setPalette(warn);
  message_->hide();
  form->addWidget(message_);

  login_ = new QPushButton(loc("Login"), card);
  login_->setObjectName(QStringLiteral("lockLogin"));
  login_->setDefault(true);
  form->addWidget(login_);

  auto* outer = new QVBoxLayout(this);
  outer->addStretch(2);
  auto* row = new QHBoxLayout;
  row->addStretch();
  row->addWidget(card, 1);
  row->addStretch();
  outer->addLayout(row);
  outer->addStretch(3);

  connect(login_, &QPushButton::clicked, this, &LockView::login);
  connect(password_, &QLineEdit::returnPressed, this, &LockView::login);
  // A new try hides the last refusal.
  connect(password_, &QLineEdit::textEdited, message_, &QLabel::hide);

  controller_->setScreenPort(std::make_shared<LockPort>(this, window));
  keyboardAtAppearance_ = controller_->viewWillAppear();
}

LockView::~LockView() {
  controller_->viewWillDisappear();
}

void LockView::setHeader(const std::string& text) {
  header_->setText(QString::fromStdString(text));
}

void LockView::showMessage(const std::string& text) {
  message_->setText(QString::fromStdString(text));
  message_->show();
}

void LockView::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  if (keyboardAtAppearance_) password_->setFocus();
}

void LockView::login() {
  controller_->txtField = password_->text().toStdString();
  // On success the window takes this view away; nothing more to do here.
  if (controller_->LoginSystem()) return;
  controller_->txtField.clear();
  password_->selectAll();
  password_->setFocus();
}

void registerLockViews() {
  Screens::addScreen(
      "LocalLoginController",
      [](std::shared_ptr<ViewController> controller, MainWindow& window) -> QWidget* {
        auto login = std::dynamic_pointer_cast<LocalLoginController>(controller);
        return login ? new LockView(login, window) : nullptr;
      });
  registerPasswordSettingsViews();
}

}  // namespace harbor::gui
