#pragma once

#include <QLabel>
#include <QPushButton>
#include <QWidget>
#include <memory>
#include <string>

namespace harbor {
class SettingsLoginPassword;
}

namespace harbor::gui {

class MainWindow;
class PreferenceTable;

// The password setup screen: the Wi-Fi and local password pairs, the auto
// login switch and forgetting folder passwords, as its controller lists them.
class PasswordSettingsView : public QWidget {
  Q_OBJECT
 public:
  explicit PasswordSettingsView(MainWindow& window);
  ~PasswordSettingsView() override;

  SettingsLoginPassword& controller() { return *controller_; }
  QPushButton* saveButton() const { return save_; }
  QString message() const { return message_->text(); }

  void showMessage(const std::string& text);
  // Shows the controller's fields and switches again.
  void reload();

 private:
  std::shared_ptr<SettingsLoginPassword> controller_;
  PreferenceTable* table_;
  QLabel* message_;
  QPushButton* save_;
};

// `--show lock-settings` and the lock screen itself.
void registerPasswordSettingsViews();

}  // namespace harbor::gui
