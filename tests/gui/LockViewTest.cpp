// The lock screen over the window, driven as a user would, offscreen.
#include <QApplication>
#include <QDialog>
#include <QPushButton>
#include <QStatusBar>
#include <QTest>
#include <QToolButton>
#include <memory>

#include "app/AppDelegate.h"
#include "editor/EditorBaseController.h"
#include "gui/Application.h"
#include "gui/EditorView.h"
#include "gui/LockView.h"
#include "gui/MainWindow.h"
#include "gui/QtScreenPort.h"
#include "platform/Strings.h"
#include "prefs/LoginPasswordUtil.h"
#include "support/TestSupport.h"

namespace harbor::gui {
namespace {

class LockViewTest : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    installMainQueueDispatcher();
  }
  void TearDown() override {
    app_.reset();
    QApplication::processEvents();
    TempHome::TearDown();
  }

  MainWindow& launch(const std::vector<std::string>& files = {}) {
    app_ = std::make_unique<DesktopApplication>();
    EXPECT_TRUE(app_->launch(files));
    QApplication::processEvents();
    return app_->window();
  }

  LockView* lock() { return qobject_cast<LockView*>(app_->window().cover()); }

  // Types into the lock's field and presses Return.
  void enter(const QString& password) {
    LockView* view = lock();
    ASSERT_NE(view, nullptr);
    view->passwordField()->clear();
    QTest::keyClicks(view->passwordField(), password);
    QTest::keyClick(view->passwordField(), Qt::Key_Return);
    QApplication::processEvents();
  }

  EditorView* waitForEditor() {
    auto* editor = qobject_cast<EditorView*>(app_->window().top());
    EXPECT_NE(editor, nullptr);
    if (!editor) return nullptr;
    EXPECT_TRUE(QTest::qWaitFor([&] { return !editor->controller().isLoading(); }, 20000));
    QApplication::processEvents();
    return editor;
  }

  std::unique_ptr<DesktopApplication> app_;
};

TEST_F(LockViewTest, LockedStartRefusesAWrongPasswordAndOpensWithTheRightOne) {
  LoginPasswordUtil::saveLocalPassword("harbour");
  MainWindow& window = launch();
  ASSERT_NE(lock(), nullptr) << "a locked start must show the lock screen";
  EXPECT_EQ(lock()->header().toStdString(), localizedString("LocalLoginPassword"));
  // Neither the navigation nor the title tell what lies under the lock.
  EXPECT_FALSE(window.findChild<QToolButton*>(QStringLiteral("back"))->isVisible());
  EXPECT_EQ(window.windowTitle(), QApplication::applicationDisplayName());
  EXPECT_FALSE(window.statusBar()->isVisible());

  enter(QStringLiteral("harbor"));
  ASSERT_NE(lock(), nullptr);
  EXPECT_EQ(lock()->message().toStdString(), localizedString("PasswordIsError"));
  EXPECT_TRUE(lock()->passwordField()->hasFocus() || !window.isActiveWindow());
  enter(QString());
  ASSERT_NE(lock(), nullptr) << "an empty password opens nothing";

  enter(QStringLiteral("harbour"));
  EXPECT_FALSE(window.isCovered());
  EXPECT_EQ(window.depth(), 1);
  EXPECT_TRUE(window.findChild<QToolButton*>(QStringLiteral("back"))->isVisible());
  EXPECT_EQ(app_->delegate().window()->rootViewController, app_->delegate().rootViewController());
}

TEST_F(LockViewTest, AnEditorUnderTheLockKeepsItsUnsavedTextAndPlace) {
  test::writeFile(root() / "notes.txt", "first line\n");
  MainWindow& window = launch({(root() / "notes.txt").string()});
  EXPECT_FALSE(window.isCovered()) << "no password: no lock";
  EditorView* editor = waitForEditor();
  ASSERT_NE(editor, nullptr);
  editor->editButton()->click();
  QTextCursor c = editor->textWidget()->textCursor();
  c.movePosition(QTextCursor::End);
  editor->textWidget()->setTextCursor(c);
  editor->textWidget()->setFocus();
  QTest::keyClicks(editor->textWidget(), QStringLiteral("unsaved"));
  const QString typed = editor->textWidget()->toPlainText();
  ASSERT_TRUE(typed.contains(QLatin1String("unsaved")));
  const int depth = window.depth();
  // A question of the editor's is open when the window goes.
  QtScreenPort port(editor);
  int answer = -1;
  port.showAlert(ScreenAlert{7, "", "Keep the tide table?", {"No", "Yes"}, {}, "", ""},
                 [&](int button, const std::vector<std::string>&) { answer = button; });
  auto* before = window.findChild<QDialog*>(QStringLiteral("alert7"));
  ASSERT_TRUE(before && before->isVisible());

  // A password set meanwhile; minimising is leaving for the background.
  LoginPasswordUtil::saveLocalPassword("tide");
  window.setWindowState(Qt::WindowMinimized);
  QApplication::processEvents();
  ASSERT_NE(lock(), nullptr) << "going to the background locks";
  EXPECT_FALSE(editor->isVisible());
  // Neither that question nor one asked under the lock shows over it.
  EXPECT_FALSE(before->isVisible());
  port.showAlert(ScreenAlert{8, "", "Saved elsewhere", {"OK"}, {}, "", ""}, nullptr);
  QApplication::processEvents();
  auto* during = window.findChild<QDialog*>(QStringLiteral("alert8"));
  ASSERT_NE(during, nullptr);
  EXPECT_FALSE(during->isVisible());
  EXPECT_FALSE(window.windowTitle().contains(QLatin1String("notes")));
  // Editor shortcuts do not reach a hidden editor.
  QTest::keyClick(&window, Qt::Key_Left, Qt::AltModifier);
  EXPECT_EQ(window.depth(), depth);

  // Coming back keeps the lock until the password.
  window.setWindowState(Qt::WindowNoState);
  QApplication::processEvents();
  ASSERT_NE(lock(), nullptr);
  enter(QStringLiteral("tide"));
  ASSERT_FALSE(window.isCovered());
  EXPECT_EQ(window.depth(), depth);
  EXPECT_EQ(window.top(), editor);
  EXPECT_EQ(editor->textWidget()->toPlainText(), typed);
  EXPECT_TRUE(window.windowTitle().contains(QLatin1String("notes")));
  EXPECT_EQ(test::readFile(root() / "notes.txt"), "first line\n") << "nothing was saved";
  // The questions are back, and still take their answer.
  ASSERT_TRUE(before->isVisible() && during->isVisible());
  before->findChild<QPushButton*>(QStringLiteral("button1"))->click();
  EXPECT_TRUE(QTest::qWaitFor([&] { return answer == 1; }, 5000));
}

TEST_F(LockViewTest, AFileGivenAtALockedStartOpensUnderTheLock) {
  test::writeFile(root() / "plan.md", "# plan\n");
  LoginPasswordUtil::saveLocalPassword("quay");
  MainWindow& window = launch({(root() / "plan.md").string()});
  ASSERT_NE(lock(), nullptr);
  auto* editor = qobject_cast<EditorView*>(window.top());
  ASSERT_NE(editor, nullptr);
  EXPECT_FALSE(editor->isVisible());
  enter(QStringLiteral("quay"));
  EXPECT_TRUE(editor->isVisible());
  EXPECT_EQ(window.depth(), 2) << "the browser root was built under the lock";
}

}  // namespace
}  // namespace harbor::gui
