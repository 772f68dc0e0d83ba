// The custom syntax list and edit screens change the store as a user works them.
#include <QApplication>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QTest>
#include <QTreeWidget>
#include <filesystem>

#include "gui/CustomSyntaxViews.h"
#include "gui/MainWindow.h"
#include "gui/QtScreenPort.h"
#include "gui/Screens.h"
#include "prefs/EditorUserDefaults.h"
#include "prefs/EditorUtils.h"
#include "support/TestSupport.h"

namespace harbor::gui {
namespace {
namespace fs = std::filesystem;

class CustomSyntaxViewsTest : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    installMainQueueDispatcher();
    registerViews();
    window_ = std::make_unique<MainWindow>();
    window_->setRoot(makeEmptyRoot(window_.get()), QStringLiteral("Documents"));
    window_->resize(900, 600);
    window_->show();
    savedPicker_ = CustomSyntaxEditView::filePicker();
    CustomSyntaxEditView::filePicker() = [this](QWidget*) { return picked_; };
  }
  void TearDown() override {
    CustomSyntaxEditView::filePicker() = savedPicker_;
    window_.reset();
    // The window set itself as the place for notices; it is gone now.
    QtScreenPort::noticeSink() = nullptr;
    TempHome::TearDown();
  }

  CustomSyntaxListView* showList(bool onlyFile) {
    EXPECT_TRUE(window_->showNamed("custom-syntax", ""));
    auto* tabs = qobject_cast<QTabWidget*>(window_->top());
    if (!tabs) return nullptr;
    tabs->setCurrentIndex(onlyFile ? 1 : 0);
    return qobject_cast<CustomSyntaxListView*>(tabs->currentWidget());
  }

  CustomSyntaxEditView* topEdit() const {
    return qobject_cast<CustomSyntaxEditView*>(window_->top());
  }

  // Picks `stx`, types `values` and saves; true when the screen closed.
  bool fill(CustomSyntaxEditView& edit, const fs::path& stx, const QString& values) {
    picked_ = QString::fromStdString(stx.string());
    QTest::mouseClick(edit.pickButton(), Qt::LeftButton);
    edit.valueField()->clear();
    QTest::keyClicks(edit.valueField(), values);
    QTest::mouseClick(edit.saveButton(), Qt::LeftButton);
    QApplication::processEvents();
    return QTest::qWaitFor([&] { return topEdit() == nullptr; }, 2000);
  }

  fs::path stxFile(const std::string& name) {
    const fs::path p = root() / "incoming" / name;
    test::writeFile(p, "; a syntax of the user's own\n");
    return p;
  }

  std::unique_ptr<MainWindow> window_;
  QString picked_;
  std::function<QString(QWidget*)> savedPicker_;
};

TEST_F(CustomSyntaxViewsTest, AddEditAndDeleteThroughTheScreensChangeTheStore) {
  CustomSyntaxListView* list = showList(false);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->list()->topLevelItemCount(), 0);

  // Add: the picked file goes into the syntax folder, its values into the store.
  QTest::mouseClick(list->addButton(), Qt::LeftButton);
  CustomSyntaxEditView* edit = topEdit();
  ASSERT_NE(edit, nullptr);
  EXPECT_FALSE(edit->viewButton()->isVisible());
  ASSERT_TRUE(fill(*edit, stxFile("mine.stx"), QStringLiteral("foo;bar,,")));
  auto byValue = EditorUserDefaults::getAllExtensionsToFileName();
  EXPECT_EQ(byValue.size(), 2u);
  EXPECT_EQ(byValue["foo"], "mine.stx");
  EXPECT_EQ(byValue["bar"], "mine.stx");
  EXPECT_TRUE(fs::exists(EditorUtils::fullName("mine.stx", false)));
  ASSERT_EQ(list->list()->topLevelItemCount(), 1);
  EXPECT_EQ(list->list()->topLevelItem(0)->text(0), QStringLiteral("mine.stx"));

  // Edit: the row opens with its values; saving replaces them.
  QTreeWidgetItem* row = list->list()->topLevelItem(0);
  const QPoint at = list->list()->visualItemRect(row).center();
  // A real double click starts with a press of its own; the view wants it.
  QTest::mouseClick(list->list()->viewport(), Qt::LeftButton, Qt::NoModifier, at);
  QTest::mouseDClick(list->list()->viewport(), Qt::LeftButton, Qt::NoModifier, at);
  edit = topEdit();
  ASSERT_NE(edit, nullptr);
  EXPECT_EQ(edit->stxField()->text(), QStringLiteral("mine.stx"));
  EXPECT_TRUE(edit->valueField()->text().contains(QLatin1String("foo")));
  EXPECT_TRUE(edit->viewButton()->isVisible());
  edit->valueField()->clear();
  QTest::keyClicks(edit->valueField(), "baz");
  QTest::mouseClick(edit->saveButton(), Qt::LeftButton);
  ASSERT_TRUE(QTest::qWaitFor([&] { return topEdit() == nullptr; }, 2000));
  byValue = EditorUserDefaults::getAllExtensionsToFileName();
  EXPECT_EQ(byValue.size(), 1u);
  EXPECT_EQ(byValue["baz"], "mine.stx");
  EXPECT_EQ(list->list()->topLevelItem(0)->text(1), QStringLiteral("baz"));

  // A value already taken by another file is refused and nothing is stored.
  QTest::mouseClick(list->addButton(), Qt::LeftButton);
  edit = topEdit();
  ASSERT_NE(edit, nullptr);
  EXPECT_FALSE(fill(*edit, stxFile("other.stx"), QStringLiteral("baz")));
  auto* refusal = window_->findChild<QDialog*>(QStringLiteral("alert100"));
  ASSERT_NE(refusal, nullptr);
  refusal->reject();
  EXPECT_EQ(EditorUserDefaults::getEditorSynaxSettings().count("other.stx"), 0u);
  EXPECT_FALSE(fs::exists(EditorUtils::fullName("other.stx", false)));
  window_->pop(edit);
  QApplication::processEvents();

  // Delete: the row, its entry and its file go.
  list->list()->setCurrentItem(list->list()->topLevelItem(0));
  QTest::mouseClick(list->deleteButton(), Qt::LeftButton);
  EXPECT_TRUE(EditorUserDefaults::getEditorSynaxSettings().empty());
  EXPECT_FALSE(fs::exists(EditorUtils::fullName("mine.stx", false)));
  EXPECT_EQ(list->list()->topLevelItemCount(), 0);
}

TEST_F(CustomSyntaxViewsTest, TheFileNameListKeepsItsOwnStoreAndRefusesEmptyInput) {
  CustomSyntaxListView* list = showList(true);
  ASSERT_NE(list, nullptr);
  QTest::mouseClick(list->addButton(), Qt::LeftButton);
  CustomSyntaxEditView* edit = topEdit();
  ASSERT_NE(edit, nullptr);
  // No values: the screen says so and stays.
  EXPECT_FALSE(fill(*edit, stxFile("ini.stx"), QString()));
  auto* refusal = window_->findChild<QDialog*>(QStringLiteral("alert100"));
  ASSERT_NE(refusal, nullptr);
  refusal->reject();
  ASSERT_TRUE(fill(*edit, stxFile("ini.stx"), QStringLiteral("php.ini")));
  EXPECT_EQ(EditorUserDefaults::getAllExtensionsToOnlyFileName()["php.ini"], "ini.stx");
  EXPECT_TRUE(EditorUserDefaults::getEditorSynaxSettings().empty());
  EXPECT_TRUE(fs::exists(EditorUtils::fullName("ini.stx", true)));
}

}  // namespace
}  // namespace harbor::gui
