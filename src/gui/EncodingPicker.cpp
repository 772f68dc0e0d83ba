#include "gui/EncodingPicker.h"

#include <QDialogButtonBox>
#include <QVBoxLayout>

#include "platform/Strings.h"

namespace harbor::gui {

EncodingPicker::EncodingPicker(QWidget* parent, const std::string& path, const std::string& current)
    : QDialog(parent), picker_(*this), list_(new QListWidget(this)) {
  setObjectName(QStringLiteral("encodingPicker"));
  setWindowTitle(QString::fromStdString(localizedString("ChangeEncoding")));
  setAttribute(Qt::WA_DeleteOnClose);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(list_);
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  layout->addWidget(buttons);
  resize(320, 420);
  // An online text has no file to remember the choice for: it is only announced.
  if (path.empty()) {
    picker_._isNotification = true;
  } else {
    picker_.fullpath = path;
  }
  picker_.systemLanguage = current;
  picker_.viewDidLoad();
  connect(list_, &QListWidget::itemActivated, this,
          [this](QListWidgetItem* item) { picker_.didSelectRow(list_->row(item)); });
  connect(list_, &QListWidget::itemClicked, this,
          [this](QListWidgetItem* item) { picker_.didSelectRow(list_->row(item)); });
}

void EncodingPicker::reloadRows() {
  list_->clear();
  for (int i = 0; i < picker_.numberOfRows(); ++i) {
    list_->addItem(QString::fromStdString(picker_.textOfRow(i)));
  }
}

void EncodingPicker::markRow(int row) {
  for (int i = 0; i < list_->count(); ++i) {
    QFont f = list_->item(i)->font();
    f.setBold(i == row);
    list_->item(i)->setFont(f);
  }
  if (row >= 0) list_->setCurrentRow(row);
}

void EncodingPicker::scrollToRow(int row) {
  if (row >= 0 && row < list_->count()) list_->scrollToItem(list_->item(row));
}

}  // namespace harbor::gui
