#pragma once

#include <QDialog>
#include <QListWidget>
#include <QWidget>
#include <functional>
#include <string>
#include <vector>

#include "platform/NotificationCenter.h"
#include "prefs/SystemSettings.h"

namespace harbor::gui {

class MainWindow;
class PreferenceTable;

// A list of choices with the current one checked; a click chooses.
class ChoiceDialog : public QDialog {
  Q_OBJECT
 public:
  ChoiceDialog(QWidget* parent, const QString& title, const std::vector<std::string>& rows,
               int marked, std::function<void(int)> choose);
  QListWidget* list() const { return list_; }
  void mark(int row);

 private:
  QListWidget* list_;
};

// The settings table as its controller builds it: sections, switches over
// stored flags, and rows that open a picker or another screen.
class SettingsView : public QWidget {
  Q_OBJECT
 public:
  explicit SettingsView(MainWindow& window);
  ~SettingsView() override;

  // Rebuilds the table from the stored settings.
  void reload();
  // Runs a row's event, as a click on the row does.
  void runEvent(const std::string& event);

 private:
  void addRow(QWidget* section, const PreferenceRow& row);
  void nightModeOptions();

  MainWindow& window_;
  SystemSettings settings_;
  PreferenceTable* table_;
  std::vector<NotificationCenter::Token> tokens_;
  bool reloadQueued_ = false;
};

// `--show settings` and `--show lock-settings`, and the lock screen.
void registerSettingsViews();

}  // namespace harbor::gui
