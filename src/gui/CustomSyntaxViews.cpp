#include "gui/CustomSyntaxViews.h"

#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeySequence>
#include <QShortcut>
#include <QTabWidget>
#include <QTimer>
#include <QVBoxLayout>

#include "gui/MainWindow.h"
#include "gui/Text.h"
#include "platform/Strings.h"

namespace harbor::gui {

namespace {

const char* titleKey(bool onlyFile) {
  return onlyFile ? "Syntax highlighting for file name" : "Syntax highlighting for extension";
}

}  // namespace

// ---- the list ---------------------------------------------------------------------------

CustomSyntaxListView::CustomSyntaxListView(bool onlyFile, MainWindow& window, QWidget* parent)
    : QWidget(parent), port_(this, window), window_(window) {
  setObjectName(onlyFile ? QStringLiteral("customSyntaxByFile")
                         : QStringLiteral("customSyntaxByExtension"));
  setProperty("crumb", loc(titleKey(onlyFile)));
  if (onlyFile) {
    controller_ = std::make_unique<CustomSyntaxOnlyForFile>(&port_);
  } else {
    controller_ = std::make_unique<CustomSyntaxController>(&port_);
  }

  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(10, 10, 10, 10);
  auto* buttons = new QHBoxLayout;
  add_ = new QPushButton(loc("Add"), this);
  add_->setObjectName(QStringLiteral("syntaxAdd"));
  delete_ = new QPushButton(loc("Delete"), this);
  delete_->setObjectName(QStringLiteral("syntaxDelete"));
  buttons->addWidget(add_);
  buttons->addWidget(delete_);
  buttons->addStretch(1);
  layout->addLayout(buttons);

  list_ = new QTreeWidget(this);
  list_->setObjectName(QStringLiteral("syntaxList"));
  list_->setRootIsDecorated(false);
  list_->setUniformRowHeights(true);
  list_->setAlternatingRowColors(true);
  list_->setColumnCount(2);
  list_->setHeaderLabels({loc("Syntax file"), loc(onlyFile ? "File names" : "Extensions")});
  list_->setColumnWidth(0, 260);
  list_->header()->setStretchLastSection(true);
  layout->addWidget(list_, 1);
  empty_ = new QLabel(loc(onlyFile ? "eg. php.ini" : "eg. html,htm,asp,php,jsp,aspx"), this);
  empty_->setObjectName(QStringLiteral("syntaxEmpty"));
  empty_->setAlignment(Qt::AlignCenter);
  empty_->setEnabled(false);
  layout->addWidget(empty_);

  connect(add_, &QPushButton::clicked, this, [this] { openEdit(std::nullopt); });
  connect(delete_, &QPushButton::clicked, this, &CustomSyntaxListView::deleteSelected);
  connect(list_, &QTreeWidget::itemActivated, this, [this](QTreeWidgetItem* item) {
    const int row = list_->indexOfTopLevelItem(item);
    if (row >= 0) openEdit(static_cast<std::size_t>(row));
  });
  connect(list_, &QTreeWidget::itemSelectionChanged, this,
          [this] { delete_->setEnabled(!list_->selectedItems().isEmpty()); });
  auto* del = new QShortcut(QKeySequence::Delete, list_);
  del->setContext(Qt::WidgetShortcut);
  connect(del, &QShortcut::activated, this, &CustomSyntaxListView::deleteSelected);

  controller_->viewDidLoad();
  reload();
}

CustomSyntaxListView::~CustomSyntaxListView() {
  // An edit screen still open reports to a list that is no longer there.
  for (const auto& edit : edits_) {
    if (edit) edit->detach();
  }
}

void CustomSyntaxListView::reload() {
  list_->clear();
  for (const auto& [name, values] : controller_->rows()) {
    auto* item = new QTreeWidgetItem(list_);
    item->setText(0, qs(name));
    item->setText(1, qs(values));
    item->setToolTip(1, qs(values));
  }
  empty_->setVisible(list_->topLevelItemCount() == 0);
  delete_->setEnabled(!list_->selectedItems().isEmpty());
}

CustomSyntaxEditView* CustomSyntaxListView::openEdit(std::optional<std::size_t> row) {
  if (row && *row >= controller_->sections.size()) return nullptr;
  auto* edit = new CustomSyntaxEditView(*this, row, window_);
  edits_.emplace_back(edit);
  window_.push(edit, edit->property("crumb").toString());
  edit->valueField()->setFocus();
  return edit;
}

void CustomSyntaxListView::deleteSelected() {
  QTreeWidgetItem* item = list_->currentItem();
  if (!item || !item->isSelected()) return;
  const int row = list_->indexOfTopLevelItem(item);
  if (row < 0) return;
  controller_->deleteRow(static_cast<std::size_t>(row));
  reload();
}

// ---- the edit screen ----------------------------------------------------------------------

void CustomSyntaxEditView::Port::close() {
  QPointer<MainWindow> window = this->window();
  QPointer<CustomSyntaxEditView> view = &view_;
  // Not inside the call that is saving: the screen goes once it returned.
  QTimer::singleShot(0, [window, view] {
    if (window && view) window->pop(view);
  });
}

std::function<QString(QWidget*)>& CustomSyntaxEditView::filePicker() {
  static std::function<QString(QWidget*)> pick = [](QWidget* parent) {
    return QFileDialog::getOpenFileName(parent, loc("Syntax file"), QString(),
                                        QStringLiteral("Syntax (*.stx);;*"));
  };
  return pick;
}

CustomSyntaxEditView::CustomSyntaxEditView(CustomSyntaxListView& list,
                                           std::optional<std::size_t> row, MainWindow& window)
    : port_(*this, window), list_(&list) {
  setObjectName(QStringLiteral("customSyntaxEdit"));
  controller_ =
      row ? list.controller().didSelectRow(*row, &port_) : list.controller().addSyntax(&port_);
  const bool onlyFile = controller_->isOnlyForFile;
  setProperty("crumb", loc(titleKey(onlyFile)));
  QPointer<MainWindow> owner = &window;
  AddSyntaxViewController::openInEditor = [owner](const std::string& path) {
    if (owner) owner->openEditor(path);
  };

  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(16, 16, 16, 16);
  auto* form = new QFormLayout;
  form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
  form->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);

  auto* stxRow = new QHBoxLayout;
  stx_ = new QLineEdit(this);
  stx_->setObjectName(QStringLiteral("stxName"));
  // Chosen with the picker only, so the name is always one of a real file.
  stx_->setReadOnly(true);
  stx_->setPlaceholderText(QStringLiteral("*.stx"));
  pick_ = new QPushButton(loc("Choose\u2026"), this);
  pick_->setObjectName(QStringLiteral("stxPick"));
  view_ = new QPushButton(loc("View"), this);
  view_->setObjectName(QStringLiteral("stxView"));
  stxRow->addWidget(stx_, 1);
  stxRow->addWidget(pick_);
  stxRow->addWidget(view_);
  form->addRow(loc("Syntax file"), stxRow);

  value_ = new QLineEdit(this);
  value_->setObjectName(QStringLiteral("syntaxValue"));
  value_->setPlaceholderText(loc(onlyFile ? "eg. php.ini" : "eg. html,htm,asp,php,jsp,aspx"));
  value_->setText(qs(controller_->value));
  form->addRow(loc(onlyFile ? "File names" : "Extensions"), value_);
  layout->addLayout(form);

  auto* buttons = new QHBoxLayout;
  buttons->addStretch(1);
  save_ = new QPushButton(loc("Save"), this);
  save_->setObjectName(QStringLiteral("syntaxSave"));
  save_->setDefault(true);
  buttons->addWidget(save_);
  layout->addLayout(buttons);
  layout->addStretch(1);

  connect(pick_, &QPushButton::clicked, this, &CustomSyntaxEditView::pickFile);
  connect(view_, &QPushButton::clicked, this, [this] { controller_->viewStxFile(); });
  connect(save_, &QPushButton::clicked, this, [this] { save(); });
  connect(value_, &QLineEdit::returnPressed, this, [this] { save(); });
  refresh();
}

void CustomSyntaxEditView::detach() {
  list_ = nullptr;
  controller_->delegate = nullptr;
}

void CustomSyntaxEditView::refresh() {
  stx_->setText(qs(controller_->displayedStxName()));
  view_->setVisible(!controller_->isViewButtonHidden());
}

void CustomSyntaxEditView::pickFile() {
  const QString path = filePicker()(this);
  if (path.isEmpty()) return;
  controller_->pickStxFile(path.toStdString());
  refresh();
}

bool CustomSyntaxEditView::save() {
  controller_->value = value_->text().toStdString();
  if (!controller_->saveContent()) return false;
  if (list_) list_->reload();
  return true;
}

// ---- registration ---------------------------------------------------------------------------

QWidget* makeCustomSyntaxScreen(MainWindow& window) {
  auto* tabs = new QTabWidget;
  tabs->setObjectName(QStringLiteral("customSyntax"));
  tabs->setDocumentMode(true);
  for (bool onlyFile : {false, true}) {
    tabs->addTab(new CustomSyntaxListView(onlyFile, window), loc(titleKey(onlyFile)));
  }
  tabs->setProperty("crumb", loc("Custom syntax"));
  return tabs;
}

void registerCustomSyntaxViews() {
  Screens::addShow("custom-syntax", [](const std::string&, MainWindow& window) -> QWidget* {
    return makeCustomSyntaxScreen(window);
  });
}

}  // namespace harbor::gui
