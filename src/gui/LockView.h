#pragma once

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QWidget>
#include <memory>
#include <string>

namespace harbor {
class LocalLoginController;
}

namespace harbor::gui {

class MainWindow;

// The lock screen over the whole window: the password field and the
// controller's header and messages. The controller decides what opens it.
class LockView : public QWidget {
  Q_OBJECT
 public:
  LockView(std::shared_ptr<LocalLoginController> controller, MainWindow& window);
  ~LockView() override;

  QLineEdit* passwordField() const { return password_; }
  QPushButton* loginButton() const { return login_; }
  QString header() const { return header_->text(); }
  QString message() const { return message_->text(); }

  void setHeader(const std::string& text);
  void showMessage(const std::string& text);

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  void login();

  std::shared_ptr<LocalLoginController> controller_;
  QLabel* header_;
  QLineEdit* password_;
  QPushButton* login_;
  QLabel* message_;
  bool keyboardAtAppearance_ = true;
};

// The lock screen and the password settings in the window's table.
void registerLockViews();

}  // namespace harbor::gui
