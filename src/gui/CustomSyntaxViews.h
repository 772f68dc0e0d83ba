#pragma once

#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTreeWidget>
#include <QWidget>
#include <functional>
#include <memory>
#include <optional>

#include "gui/Screens.h"
#include "syntax/CustomSyntaxController.h"

namespace harbor::gui {

class CustomSyntaxEditView;

// The user's syntax files and what each is assigned to: by extension, or
// (onlyFile) by exact file name.
class CustomSyntaxListView : public QWidget {
  Q_OBJECT
 public:
  CustomSyntaxListView(bool onlyFile, MainWindow& window, QWidget* parent = nullptr);
  ~CustomSyntaxListView() override;

  CustomSyntaxBaseConroller& controller() { return *controller_; }
  QTreeWidget* list() const { return list_; }
  QPushButton* addButton() const { return add_; }
  QPushButton* deleteButton() const { return delete_; }

  // The rows again from the controller.
  void reload();
  // The edit screen, empty or for a row, pushed on the window.
  CustomSyntaxEditView* openEdit(std::optional<std::size_t> row);
  void deleteSelected();

 private:
  WindowPort port_;
  MainWindow& window_;
  std::unique_ptr<CustomSyntaxBaseConroller> controller_;
  QTreeWidget* list_;
  QPushButton* add_;
  QPushButton* delete_;
  QLabel* empty_;
  std::vector<QPointer<CustomSyntaxEditView>> edits_;
};

// One assignment: the stx file (picked, never typed) and its values.
class CustomSyntaxEditView : public QWidget {
  Q_OBJECT
 public:
  CustomSyntaxEditView(CustomSyntaxListView& list, std::optional<std::size_t> row,
                       MainWindow& window);

  AddSyntaxViewController& controller() { return *controller_; }
  // The list is going: saving no longer reports to it.
  void detach();

  QLineEdit* stxField() const { return stx_; }
  QLineEdit* valueField() const { return value_; }
  QPushButton* pickButton() const { return pick_; }
  QPushButton* viewButton() const { return view_; }
  QPushButton* saveButton() const { return save_; }

  // Asks for a file; the dialog by default, replaced by tests.
  static std::function<QString(QWidget*)>& filePicker();

  void pickFile();
  bool save();

 private:
  class Port : public WindowPort {
   public:
    Port(CustomSyntaxEditView& view, MainWindow& window) : WindowPort(&view, window), view_(view) {}
    void close() override;

   private:
    CustomSyntaxEditView& view_;
  };
  void refresh();

  Port port_;
  QPointer<CustomSyntaxListView> list_;
  std::shared_ptr<AddSyntaxViewController> controller_;
  QLineEdit* stx_;
  QLineEdit* value_;
  QPushButton* pick_;
  QPushButton* view_;
  QPushButton* save_;
};

// Both lists in tabs: `--show custom-syntax`.
QWidget* makeCustomSyntaxScreen(MainWindow& window);
void registerCustomSyntaxViews();

}  // namespace harbor::gui
