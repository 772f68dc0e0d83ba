#include "gui/QtScreenPort.h"

#include <QApplication>
#include <QCursor>
#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QVBoxLayout>
#include <memory>

#include "platform/MainQueue.h"

namespace harbor::gui {

void installMainQueueDispatcher() {
  MainQueue::shared().adoptCurrentThread();
  MainQueue::shared().setDispatcher([](std::function<void()> work) {
    // Queued even from the main thread: a post never runs inside its poster.
    // After the application object has gone there is no loop to run it.
    if (QCoreApplication* app = QCoreApplication::instance()) {
      QMetaObject::invokeMethod(app, std::move(work), Qt::QueuedConnection);
    }
  });
}

std::function<void(const QString&)>& QtScreenPort::noticeSink() {
  static std::function<void(const QString&)> sink;
  return sink;
}

void QtScreenPort::showAlert(const ScreenAlert& alert, IScreenPort::AlertReply reply) {
  auto* dialog = new QDialog(host_ ? host_->window() : nullptr);
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setObjectName(QStringLiteral("alert%1").arg(alert.tag));
  dialog->setProperty("tag", alert.tag);
  dialog->setWindowTitle(QApplication::applicationDisplayName());
  auto* layout = new QVBoxLayout(dialog);
  auto* label = new QLabel(QString::fromStdString(alert.text), dialog);
  label->setWordWrap(true);
  label->setMinimumWidth(280);
  layout->addWidget(label);
  std::vector<QLineEdit*> edits;
  for (const ScreenField& field : alert.fields) {
    auto* edit = new QLineEdit(QString::fromStdString(field.text), dialog);
    edit->setPlaceholderText(QString::fromStdString(field.placeholder));
    layout->addWidget(edit);
    edits.push_back(edit);
  }
  auto* box = new QDialogButtonBox(dialog);
  layout->addWidget(box);
  // One answer per dialog, whichever way it ends.
  auto answered = std::make_shared<bool>(false);
  auto answer = [reply, edits, answered](int button) {
    if (*answered) return;
    *answered = true;
    std::vector<std::string> fields;
    for (QLineEdit* e : edits) fields.push_back(e->text().toStdString());
    if (reply) MainQueue::shared().post([reply, button, fields] { reply(button, fields); });
  };
  const auto buttons = alert.buttons.empty() ? std::vector<std::string>{"OK"} : alert.buttons;
  for (std::size_t i = 0; i < buttons.size(); ++i) {
    auto* button = box->addButton(QString::fromStdString(buttons[i]), QDialogButtonBox::ActionRole);
    button->setObjectName(QStringLiteral("button%1").arg(i));
    // The last button is the affirmative one, as the screens order them.
    if (i + 1 == buttons.size()) button->setDefault(true);
    QObject::connect(button, &QPushButton::clicked, dialog, [dialog, answer, i] {
      answer(static_cast<int>(i));
      dialog->done(QDialog::Accepted);
    });
  }
  // Escape or the close box answers nothing: a first button may mean
  // "discard", which a stray key must not choose. The screen stays as it was.
  QObject::connect(dialog, &QDialog::rejected, dialog, [answered, dropped = onDropped_] {
    if (!*answered && dropped) dropped();
  });
  dialog->setModal(true);
  dialog->show();
  if (!edits.empty()) edits.front()->setFocus();
}

void QtScreenPort::showSheet(const ScreenSheet& sheet, IScreenPort::SheetReply reply) {
  // A second press while the sheet shows only dismisses it: the controller
  // decides that, so a fresh sheet replaces any stale one.
  dismissSheet();
  auto* menu = new QMenu(host_);
  menu->setAttribute(Qt::WA_DeleteOnClose);
  menu->setObjectName(QStringLiteral("sheet%1").arg(sheet.tag));
  for (std::size_t i = 0; i < sheet.rows.size(); ++i) {
    QAction* action = menu->addAction(QString::fromStdString(sheet.rows[i]));
    QObject::connect(action, &QAction::triggered, menu, [reply, i] {
      if (reply) MainQueue::shared().post([reply, i] { reply(static_cast<int>(i)); });
    });
  }
  sheet_ = menu;
  menu->popup(QCursor::pos());
}

void QtScreenPort::dismissSheet() {
  if (sheet_) sheet_->close();
  sheet_.clear();
}

void QtScreenPort::showMessage(const std::string& text) {
  if (noticeSink()) noticeSink()(QString::fromStdString(text));
}

}  // namespace harbor::gui
