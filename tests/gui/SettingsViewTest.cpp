// The settings and password screens bound to their controllers, offscreen.
#include <QApplication>
#include <QCheckBox>
#include <QDialog>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTest>
#include <QToolButton>
#include <chrono>

#include "app/HarborFileManagerController.h"
#include "app/SettingsLoginPassword.h"
#include "editor/EditorBak.h"
#include "filemanager/CommonUtil.h"
#include "gui/MainWindow.h"
#include "gui/PasswordSettingsView.h"
#include "gui/QtScreenPort.h"
#include "gui/Screens.h"
#include "gui/SettingsView.h"
#include "gui/Theme.h"
#include "platform/Strings.h"
#include "prefs/AppUserDefaultUtils.h"
#include "prefs/LoginPasswordUtil.h"
#include "support/TestSupport.h"

namespace harbor::gui {
namespace {

class SettingsViewTest : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    installMainQueueDispatcher();
    registerViews();
    window_ = std::make_unique<MainWindow>();
    window_->setRoot(makeEmptyRoot(window_.get()), QStringLiteral("Documents"));
    window_->show();
  }
  void TearDown() override {
    window_.reset();
    applyApplicationTheme();
    QApplication::processEvents();
    TempHome::TearDown();
  }

  // A widget of the screen on top (a closed one may linger until deleted).
  template <class T>
  T* child(const QString& name) {
    QApplication::processEvents();
    QWidget* top = window_->top();
    if (auto* self = qobject_cast<T*>(top); self && top->objectName() == name) return self;
    return top ? top->findChild<T*>(name) : nullptr;
  }

  // The open dialog of that name, waiting for it to come up.
  QDialog* dialog(const QString& name) {
    QDialog* found = nullptr;
    (void)QTest::qWaitFor(
        [&] {
          for (QWidget* w : QApplication::topLevelWidgets()) {
            if (w->objectName() == name && w->isVisible()) found = qobject_cast<QDialog*>(w);
          }
          return found != nullptr;
        },
        3000);
    return found;
  }

  // Answers an alert: its one field, then the last (affirmative) button.
  void answer(const QString& alertName, const QString& text) {
    QDialog* alert = dialog(alertName);
    ASSERT_NE(alert, nullptr) << alertName.toStdString();
    alert->findChild<QLineEdit*>()->setText(text);
    alert->findChild<QPushButton*>(QStringLiteral("button1"))->click();
    QTest::qWait(20);
    QApplication::processEvents();
  }

  void choose(const QString& pickerName, int row) {
    QDialog* picker = dialog(pickerName);
    ASSERT_NE(picker, nullptr) << pickerName.toStdString();
    QListWidget* list = picker->findChild<QListWidget*>();
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {},
                      list->visualItemRect(list->item(row)).center());
    QTest::qWait(20);
    QApplication::processEvents();
  }

  void typeField(const QString& name, const QString& text) {
    auto* edit = child<QLineEdit>(name);
    ASSERT_NE(edit, nullptr) << name.toStdString();
    edit->selectAll();
    if (text.isEmpty()) {
      QTest::keyClick(edit, Qt::Key_Delete);
    } else {
      QTest::keyClicks(edit, text);
    }
  }

  std::unique_ptr<MainWindow> window_;
};

TEST_F(SettingsViewTest, SwitchesStoreTheirFlagAndNightModeRepaintsAtOnce) {
  ASSERT_TRUE(window_->showNamed("settings", {}));
  auto* backup = child<QCheckBox>(QStringLiteral("SystemEditorAutoBak"));
  ASSERT_NE(backup, nullptr);
  EXPECT_TRUE(backup->isChecked()) << "the owner's default shows for an unset flag";
  backup->click();
  EXPECT_FALSE(EditorBak::getSystemEditorAutoBak());
  EXPECT_EQ(defaults()->boolForKey("SystemEditorAutoBak", true), false);

  // Night hours that hold for the rest of today; the switch turns them on.
  const auto endOfDay = std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now()) +
                        std::chrono::hours(23) + std::chrono::minutes(59) +
                        std::chrono::seconds(59);
  AppUserDefaultUtils::saveStartTime(endOfDay);
  AppUserDefaultUtils::saveEndTime(endOfDay);
  const bool desktopDark = isDarkDesktop(QApplication::palette());
  auto* night = child<QCheckBox>(QStringLiteral("SYSTEM_NIGHT_MODE"));
  ASSERT_NE(night, nullptr);
  night->click();
  EXPECT_TRUE(AppUserDefaultUtils::getNightMode());
  QTest::qWait(20);
  EXPECT_TRUE(isDarkDesktop(QApplication::palette()));
  // The table was rebuilt from the store and still shows the change.
  night = child<QCheckBox>(QStringLiteral("SYSTEM_NIGHT_MODE"));
  ASSERT_NE(night, nullptr);
  EXPECT_TRUE(night->isChecked());
  night->click();
  QTest::qWait(20);
  EXPECT_EQ(isDarkDesktop(QApplication::palette()), desktopDark);
}

TEST_F(SettingsViewTest, PreferencesOfTheRootBrowserPushTheSettingsScreen) {
  auto root = HarborFileManagerController::createRoot();
  root->setPort(std::make_shared<WindowPort>(window_.get(), *window_));
  const int before = window_->depth();
  ASSERT_TRUE(root->handleSheetEntry("Preferences"));
  EXPECT_EQ(window_->depth(), before + 1);
  EXPECT_NE(qobject_cast<SettingsView*>(window_->top()), nullptr);
}

TEST_F(SettingsViewTest, PickersStoreTheChosenValueAndTheRowShowsIt) {
  ASSERT_TRUE(window_->showNamed("settings", {}));
  auto* order = child<QToolButton>(QStringLiteral("loadFileOrderType:"));
  ASSERT_NE(order, nullptr);
  order->click();
  choose(QStringLiteral("picker_loadFileOrderType"), 3);
  EXPECT_EQ(CommonUtil::getFileDisplayType(), 3);

  child<QToolButton>(QStringLiteral("loadImageFormat:"))->click();
  choose(QStringLiteral("picker_loadImageFormat"), 2);
  EXPECT_EQ(ImageSettings::getImportFormat(), "png");
  QTest::qWait(20);
  auto* format = child<QToolButton>(QStringLiteral("loadImageFormat:"));
  ASSERT_NE(format, nullptr);
  EXPECT_TRUE(format->text().contains(QString::fromStdString(localizedString("png"))));

  // The default encoding through the encoding picker's controller.
  child<QToolButton>(QStringLiteral("loadEncoding:"))->click();
  QDialog* encodings = dialog(QStringLiteral("picker_loadEncoding"));
  ASSERT_NE(encodings, nullptr);
  QListWidget* list = encodings->findChild<QListWidget*>();
  ASSERT_GT(list->count(), 2);
  const QString picked = list->item(2)->text();
  choose(QStringLiteral("picker_loadEncoding"), 2);
  const std::string stored = defaults()->stringForKey("SYSTEM_DEFAULT_Encoding");
  ASSERT_FALSE(stored.empty());
  EXPECT_TRUE(picked.startsWith(QString::fromStdString(stored))) << stored;
}

TEST_F(SettingsViewTest, PasswordSettingsSetChangeAndRemoveTheLocalPassword) {
  ASSERT_TRUE(window_->showNamed("lock-settings", {}));
  // Biometrics do not exist here: no rows for them.
  EXPECT_EQ(child<QCheckBox>(QStringLiteral("SystemTouchIDAuthentication")), nullptr);

  typeField(QStringLiteral("localPassword"), QStringLiteral("anchor"));
  typeField(QStringLiteral("localConfirm"), QStringLiteral("anchors"));
  child<QPushButton>(QStringLiteral("savePasswords"))->click();
  auto* view = child<PasswordSettingsView>(QStringLiteral("passwordSettings"));
  ASSERT_NE(view, nullptr) << "a refused save keeps the screen";
  EXPECT_TRUE(
      view->message().contains(QString::fromStdString(localizedString("PasswordNotEqualConfirm"))));
  EXPECT_EQ(LoginPasswordUtil::getLocalPassword(), "");

  typeField(QStringLiteral("localConfirm"), QStringLiteral("anchor"));
  view->saveButton()->click();
  EXPECT_EQ(LoginPasswordUtil::getLocalPassword(), "anchor");
  EXPECT_TRUE(QTest::qWaitFor([&] { return window_->depth() == 1; }, 2000)) << "saved: it leaves";

  // Removing asks for the current password first; a wrong one changes nothing.
  ASSERT_TRUE(window_->showNamed("lock-settings", {}));
  typeField(QStringLiteral("localPassword"), QString());
  typeField(QStringLiteral("localConfirm"), QString());
  child<QPushButton>(QStringLiteral("savePasswords"))->click();
  answer(QStringLiteral("alert1024"), QStringLiteral("rudder"));
  EXPECT_EQ(LoginPasswordUtil::getLocalPassword(), "anchor");
  view = child<PasswordSettingsView>(QStringLiteral("passwordSettings"));
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(view->message().toStdString(), localizedString("PasswordIsError"));

  view->saveButton()->click();
  answer(QStringLiteral("alert1024"), QStringLiteral("anchor"));
  EXPECT_EQ(LoginPasswordUtil::getLocalPassword(), "");
  EXPECT_FALSE(defaults()->objectForKey("SYSTEM_LOCAL_LOGIN_PASSWORD").has_value());
}

TEST_F(SettingsViewTest, AutoLoginOverAStoredPasswordAsksForIt) {
  LoginPasswordUtil::saveLocalPassword("keel");
  ASSERT_TRUE(window_->showNamed("lock-settings", {}));
  auto* autoLogin = child<QCheckBox>(QStringLiteral("System_Local_AutoLogin"));
  ASSERT_NE(autoLogin, nullptr);
  autoLogin->click();
  answer(QStringLiteral("alert1026"), QStringLiteral("hull"));
  EXPECT_FALSE(LoginPasswordUtil::getAutoLogin());
  autoLogin = child<QCheckBox>(QStringLiteral("System_Local_AutoLogin"));
  EXPECT_FALSE(autoLogin->isChecked()) << "a refused switch goes back";

  autoLogin->click();
  answer(QStringLiteral("alert1026"), QStringLiteral("keel"));
  EXPECT_TRUE(LoginPasswordUtil::getAutoLogin());
}

}  // namespace
}  // namespace harbor::gui
