#pragma once

#include <QDialog>
#include <QListWidget>
#include <string>

#include "encoding/PickSystemLanguage.h"

namespace harbor::gui {

// The encoding list as a dialog; the picker controller decides what a choice
// stores and broadcasts.
class EncodingPicker : public QDialog, public IPickSystemLanguageView {
  Q_OBJECT
 public:
  EncodingPicker(QWidget* parent, const std::string& path, const std::string& current);

  QListWidget* list() const { return list_; }

  void reloadRows() override;
  void markRow(int row) override;
  void scrollToRow(int row) override;
  bool isCancellable() const override { return true; }
  void close() override { QDialog::accept(); }

 private:
  PickSystemLanguage picker_;
  QListWidget* list_;
};

}  // namespace harbor::gui
