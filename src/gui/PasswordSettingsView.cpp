#include "gui/PasswordSettingsView.h"

#include <QApplication>
#include <QCheckBox>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QVBoxLayout>
#include <functional>
#include <map>

#include "app/SettingsLoginPassword.h"
#include "gui/MainWindow.h"
#include "gui/PreferenceTable.h"
#include "gui/Screens.h"
#include "gui/Text.h"
#include "gui/Theme.h"
#include "platform/Strings.h"

namespace harbor::gui {

namespace {

class PasswordPort : public WindowPort {
 public:
  PasswordPort(PasswordSettingsView* view, MainWindow& window)
      : WindowPort(view, window), view_(view) {}
  void showMessage(const std::string&, const std::string& text) override {
    if (view_) view_->showMessage(text);
  }
  // Saved or given up: the screen leaves the stack.
  void close() override {
    if (view_ && window()) window()->pop(view_);
  }

 private:
  QPointer<PasswordSettingsView> view_;
};

// The controller's text fields by the names its rows give them.
std::string* fieldOf(SettingsLoginPassword& c, const std::string& name) {
  if (name == "wifiPassword") return &c.wifiPassword;
  if (name == "wifiConfirm") return &c.wifiConfirm;
  if (name == "localPassword") return &c.localPassword;
  if (name == "localConfirm") return &c.localConfirm;
  return nullptr;
}

// A switch's event and the state it shows.
struct SwitchBinding {
  std::function<bool(SettingsLoginPassword&)> state;
  std::function<void(SettingsLoginPassword&, bool)> change;
};

const std::map<std::string, SwitchBinding>& switches() {
  static const std::map<std::string, SwitchBinding> table = {
      {"changeAutoLogin:",
       {[](auto& c) { return c.autoLogin; }, [](auto& c, bool on) { c.changeAutoLogin(on); }}},
      {"changeTouchIDAuthentication:",
       {[](auto& c) { return c.touchIDAuthentication; },
        [](auto& c, bool on) { c.changeTouchIDAuthentication(on); }}},
      {"changeTouchIDAuthenticationFolder:",
       {[](auto& c) { return c.touchIDAuthenticationFolder; },
        [](auto& c, bool on) { c.changeTouchIDAuthenticationFolder(on); }}},
  };
  return table;
}

}  // namespace

PasswordSettingsView::PasswordSettingsView(MainWindow& window) : QWidget(&window) {
  setObjectName(QStringLiteral("passwordSettings"));
  setProperty("crumb", loc("LocalLoginPassword"));
  controller_ =
      std::make_shared<SettingsLoginPassword>(std::make_shared<PasswordPort>(this, window));
  controller_->reloadData = [this] { reload(); };

  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  message_ = new QLabel(this);
  message_->setObjectName(QStringLiteral("passwordMessage"));
  message_->setWordWrap(true);
  message_->setContentsMargins(24, 10, 24, 0);
  QPalette warn = message_->palette();
  // A red that stays readable on the night palette.
  warn.setColor(QPalette::WindowText, isDarkDesktop(QApplication::palette())
                                          ? QColor(0xff, 0x80, 0x72)
                                          : QColor(0xc4, 0x2b, 0x1f));
  message_->setPalette(warn);
  message_->hide();
  layout->addWidget(message_);
  table_ = new PreferenceTable(this);
  layout->addWidget(table_, 1);
  auto* bar = new QHBoxLayout;
  bar->setContentsMargins(24, 8, 24, 12);
  bar->addStretch();
  save_ = new QPushButton(loc("Save"), this);
  save_->setObjectName(QStringLiteral("savePasswords"));
  save_->setDefault(true);
  bar->addWidget(save_);
  layout->addLayout(bar);
  connect(save_, &QPushButton::clicked, this, [this] {
    message_->hide();
    controller_->savePassword(SettingsLoginPassword::Sender{});
  });

  controller_->viewDidLoad();
  reload();
}

PasswordSettingsView::~PasswordSettingsView() {
  // The controller may outlive us in a reply; it must not call back here.
  controller_->reloadData = nullptr;
}

void PasswordSettingsView::showMessage(const std::string& text) {
  message_->setText(QString::fromStdString(text));
  message_->show();
}

void PasswordSettingsView::reload() {
  table_->clear();
  SettingsLoginPassword& c = *controller_;
  for (const PreferenceSection& section : c.sections()) {
    if (section.empty()) continue;
    QFrame* card =
        table_->addSection(PreferenceTable::value(section.front(), rowkeys::sectionTitle));
    for (const PreferenceRow& row : section) {
      const std::string control = PreferenceTable::value(row, rowkeys::control);
      const std::string content = PreferenceTable::value(row, rowkeys::content);
      const std::string event = PreferenceTable::value(row, rowkeys::event);
      const std::string text = PreferenceTable::value(row, rowkeys::text);
      std::string note = PreferenceTable::value(row, rowkeys::detail);
      if (!note.empty()) note = localizedString(note);
      QWidget* widget = nullptr;
      if (control == "UITextField") {
        std::string* field = fieldOf(c, content);
        if (!field) continue;
        auto* edit = new QLineEdit;
        edit->setObjectName(QString::fromStdString(content));
        edit->setEchoMode(QLineEdit::Password);
        edit->setMinimumWidth(240);
        edit->setText(QString::fromStdString(*field));
        connect(edit, &QLineEdit::textEdited, this, [this, content](const QString& value) {
          if (std::string* f = fieldOf(*controller_, content)) *f = value.toStdString();
        });
        widget = edit;
      } else if (control == "UISwitch") {
        auto it = switches().find(event);
        if (it == switches().end()) continue;
        auto* box = new QCheckBox;
        box->setObjectName(QString::fromStdString(content));
        box->setChecked(it->second.state(c));
        connect(box, &QCheckBox::clicked, this,
                [this, event](bool on) { switches().at(event).change(*controller_, on); });
        widget = box;
      } else if (event == "clearDirectoryPassword:") {
        auto* button = new QPushButton(loc(text));
        button->setObjectName(QStringLiteral("clearDirectoryPassword"));
        connect(button, &QPushButton::clicked, this,
                [this] { controller_->clearDirectoryPassword(); });
        table_->addRow(card, std::string(), note, button);
        continue;
      }
      table_->addRow(card, text, note, widget);
    }
  }
}

void registerPasswordSettingsViews() {
  Screens::addShow("lock-settings", [](const std::string&, MainWindow& window) -> QWidget* {
    return new PasswordSettingsView(window);
  });
}

}  // namespace harbor::gui
