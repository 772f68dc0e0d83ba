#include "gui/MainWindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QMenu>
#include <QPointer>
#include <QPushButton>
#include <QScreen>
#include <QStatusBar>
#include <QTimer>
#include <QUrl>
#include <QVBoxLayout>
#include <filesystem>
#include <utility>

#include "gui/EditorView.h"
#include "gui/QtScreenPort.h"
#include "gui/Screens.h"
#include "platform/Directories.h"
#include "platform/UserDefaults.h"

namespace harbor::gui {

namespace {
constexpr const char* kGeometryKey = "SystemDesktopWindowGeometry";
}

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent) {
  setObjectName(QStringLiteral("mainWindow"));
  auto* central = new QWidget(this);
  auto* layout = new QVBoxLayout(central);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  auto* bar = new QWidget(central);
  bar->setObjectName(QStringLiteral("navigationBar"));
  auto* barLayout = new QHBoxLayout(bar);
  barLayout->setContentsMargins(6, 4, 6, 4);
  back_ = new QToolButton(bar);
  back_->setObjectName(QStringLiteral("back"));
  back_->setText(tr("\u2039 Back"));
  back_->setToolButtonStyle(Qt::ToolButtonTextOnly);
  back_->setShortcut(QKeySequence(Qt::ALT | Qt::Key_Left));
  connect(back_, &QToolButton::clicked, this, &MainWindow::goBack);
  crumb_ = new QLabel(bar);
  crumb_->setObjectName(QStringLiteral("breadcrumb"));
  crumb_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  crumb_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  barLayout->addWidget(back_);
  barLayout->addWidget(crumb_, 1);
  layout->addWidget(bar);
  stack_ = new QStackedWidget(central);
  layout->addWidget(stack_, 1);
  layers_ = new QStackedWidget(this);
  layers_->addWidget(central);
  setCentralWidget(layers_);
  notice_ = new QLabel(this);
  statusBar()->addWidget(notice_, 1);
  // Notices outlive no window: a closed one drops them.
  QtScreenPort::noticeSink() = [self = QPointer<MainWindow>(this)](const QString& text) {
    if (self) self->statusBar()->showMessage(text, 4000);
  };
  restoreGeometryFromPreferences();
  refreshChrome();
}

QString MainWindow::crumbFor(const std::string& path) {
  namespace fs = std::filesystem;
  const fs::path root = Directories::documentDirectory();
  std::error_code ec;
  const fs::path rel = fs::relative(fs::absolute(path, ec), root, ec);
  QStringList parts{tr("Documents")};
  if (ec || rel.empty() || *rel.begin() == "..") {
    return QString::fromStdString(fs::absolute(path, ec).string());
  }
  for (const auto& part : rel) {
    if (part != ".") parts << QString::fromStdString(part.string());
  }
  return parts.join(QStringLiteral(" \u203a "));
}

void MainWindow::setRoot(QWidget* root, const QString& crumb) {
  root->setProperty("crumb", crumb);
  // A new root takes the old one's place; the screens above stay.
  if (QWidget* old = stack_->count() ? stack_->widget(0) : nullptr;
      old && old->property("isRoot").toBool() && old != root) {
    stack_->removeWidget(old);
    old->deleteLater();
  }
  root->setProperty("isRoot", true);
  stack_->insertWidget(0, root);
  stack_->setCurrentIndex(stack_->count() - 1);
  refreshChrome();
}

void MainWindow::push(QWidget* page, const QString& crumb) {
  page->setProperty("crumb", crumb);
  stack_->addWidget(page);
  stack_->setCurrentWidget(page);
  refreshChrome();
}

void MainWindow::pop(QWidget* page) {
  if (stack_->indexOf(page) < 0) return;
  stack_->removeWidget(page);
  page->deleteLater();
  refreshChrome();
  if (quitting_) QTimer::singleShot(0, this, &MainWindow::continueQuit);
}

EditorView* MainWindow::openEditor(const std::string& path) {
  namespace fs = std::filesystem;
  std::error_code ec;
  // A name that is not there yet starts a new file of that name.
  const bool isNew = !fs::exists(path, ec);
  auto* editor = new EditorView(fs::absolute(path, ec).string(), isNew, this);
  connect(editor, &EditorView::closed, this, [this, editor] { pop(editor); });
  connect(editor, &EditorView::titleChanged, this, [this] { refreshChrome(); });
  // An unanswered save question ends a quit: the user stays.
  connect(editor, &EditorView::questionDropped, this, [this] { quitting_ = false; });
  push(editor, crumbFor(path));
  editor->textWidget()->setFocus();
  return editor;
}

bool MainWindow::pushScreen(std::shared_ptr<ViewController> screen) {
  if (!screen) return false;
  const ScreenFactory* make = Screens::screen(screenOf(screen)->className());
  QWidget* page = make ? (*make)(screen, *this) : nullptr;
  if (!page) {
    statusBar()->showMessage(tr("This screen is not available here."), 4000);
    return false;
  }
  const QVariant crumb = page->property("crumb");
  push(page, crumb.isValid() ? crumb.toString() : page->windowTitle());
  return true;
}

namespace {
quintptr controllerId(const std::shared_ptr<ViewController>& root) {
  return reinterpret_cast<quintptr>(root.get());
}
}  // namespace

void MainWindow::showRootScreen(std::shared_ptr<ViewController> root) {
  QWidget* page = isRootShown(root) ? nullptr : makeRootPage(root);
  if (page && page->property("coversWindow").toBool()) {
    removeCovers();
    layers_->addWidget(page);
    layers_->setCurrentWidget(page);
    for (QWidget* widget : QApplication::topLevelWidgets())
      if (widget->isVisible() && isOwnWindow(widget)) hold(widget);
    qApp->installEventFilter(this);
    // Nothing of what lies under the cover shows, not even in the title or
    // a notice.
    setWindowTitle(QApplication::applicationDisplayName());
    statusBar()->clearMessage();
    statusBar()->hide();
    return;
  }
  uncover();
  if (page) installRoot(page);
}

void MainWindow::placeRoot(std::shared_ptr<ViewController> root) {
  if (isRootShown(root)) return;
  QWidget* page = makeRootPage(root);
  // A covering screen is no root of the stack.
  if (page->property("coversWindow").toBool()) {
    page->deleteLater();
    page = makeEmptyRoot(this);
    page->setProperty("rootController", QVariant::fromValue(quintptr(0)));
  }
  installRoot(page);
}

bool MainWindow::isRootShown(const std::shared_ptr<ViewController>& root) const {
  // The same root coming back (after the lock) keeps its widget and state.
  QWidget* old = stack_->count() ? stack_->widget(0) : nullptr;
  return root && old && old->property("isRoot").toBool() &&
         old->property("rootController").value<quintptr>() == controllerId(root);
}

QWidget* MainWindow::makeRootPage(const std::shared_ptr<ViewController>& root) {
  QWidget* page = nullptr;
  if (root) {
    if (const ScreenFactory* make = Screens::screen(screenOf(root)->className()))
      page = (*make)(root, *this);
  }
  if (!page) page = makeEmptyRoot(this);
  page->setProperty("rootController", QVariant::fromValue(controllerId(root)));
  return page;
}

void MainWindow::installRoot(QWidget* page) {
  const QVariant crumb = page->property("crumb");
  setRoot(page, crumb.isValid() ? crumb.toString() : tr("Documents"));
}

bool MainWindow::isCovered() const {
  return layers_->currentIndex() > 0;
}

QWidget* MainWindow::cover() const {
  return isCovered() ? layers_->currentWidget() : nullptr;
}

bool MainWindow::isOwnWindow(const QWidget* widget) const {
  if (widget == this || !widget->isWindow()) return false;
  for (const QWidget* up = widget->parentWidget(); up; up = up->parentWidget())
    if (up == this) return true;
  return false;
}

void MainWindow::hold(QWidget* widget) {
  // A menu is a passing choice: it closes. A dialog comes back as it was.
  if (qobject_cast<QMenu*>(widget)) {
    widget->close();
    return;
  }
  if (!held_.contains(widget)) held_ << widget;
  widget->hide();
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::Show && isCovered() && watched->isWidgetType()) {
    auto* widget = static_cast<QWidget*>(watched);
    // Hidden once its showing is done: hiding inside the show is undone by it.
    if (isOwnWindow(widget))
      QTimer::singleShot(0, widget, [this, widget] {
        if (isCovered()) hold(widget);
      });
  }
  return QMainWindow::eventFilter(watched, event);
}

void MainWindow::removeCovers() {
  while (layers_->count() > 1) {
    QWidget* page = layers_->widget(layers_->count() - 1);
    layers_->removeWidget(page);
    page->hide();
    page->deleteLater();
  }
}

void MainWindow::uncover() {
  const bool wasCovered = isCovered();
  removeCovers();
  layers_->setCurrentIndex(0);
  statusBar()->show();
  refreshChrome();
  if (!wasCovered) return;
  qApp->removeEventFilter(this);
  const auto held = std::exchange(held_, {});
  for (const QPointer<QWidget>& widget : held)
    if (widget) widget->show();
}

bool MainWindow::canOpen(ScreenRoute route) {
  return route == ScreenRoute::Editor || route == ScreenRoute::HandOver ||
         Screens::route(route) != nullptr;
}

void MainWindow::openFiles(ScreenRoute route, const std::vector<std::string>& files,
                           std::size_t current) {
  if (files.empty()) return;
  if (current >= files.size()) current = 0;
  const std::string& path = files[current];
  if (route == ScreenRoute::Editor) {
    openEditor(path);
    return;
  }
  if (const RouteFactory* make = Screens::route(route)) {
    if (QWidget* page = (*make)(files, current, *this)) {
      const QVariant crumb = page->property("crumb");
      push(page, crumb.isValid() ? crumb.toString() : crumbFor(path));
      return;
    }
  }
  // No view of ours: the desktop's own application for the file.
  QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(path)));
}

bool MainWindow::showNamed(const std::string& name, const std::string& path) {
  const ShowFactory* make = Screens::show(name);
  QWidget* page = make ? (*make)(path, *this) : nullptr;
  if (!page) return false;
  const QVariant crumb = page->property("crumb");
  push(page, crumb.isValid() ? crumb.toString() : QString::fromStdString(name));
  return true;
}

void MainWindow::goBack() {
  if (stack_->count() <= 1) return;
  QWidget* top = stack_->currentWidget();
  if (auto* editor = qobject_cast<EditorView*>(top)) {
    editor->requestClose();
  } else {
    pop(top);
  }
}

void MainWindow::refreshChrome() {
  back_->setEnabled(stack_->count() > 1);
  if (isCovered()) return;
  QWidget* top = stack_->currentWidget();
  QString crumb = top ? top->property("crumb").toString() : QString();
  crumb_->setText(crumb);
  QString title = QApplication::applicationDisplayName();
  if (auto* editor = qobject_cast<EditorView*>(top); editor && !editor->title().isEmpty()) {
    title = editor->title() + QStringLiteral(" \u2014 ") + title;
  }
  setWindowTitle(title);
}

void MainWindow::changeEvent(QEvent* event) {
  QMainWindow::changeEvent(event);
  if (event->type() != QEvent::WindowStateChange) return;
  const bool wasMinimized =
      static_cast<QWindowStateChangeEvent*>(event)->oldState() & Qt::WindowMinimized;
  if (isMinimized() && !wasMinimized) emit enteredBackground();
  if (!isMinimized() && wasMinimized) emit enteredForeground();
}

void MainWindow::closeEvent(QCloseEvent* event) {
  if (qobject_cast<EditorView*>(stack_->currentWidget())) {
    // Editors leave through their controllers; the window closes after them.
    event->ignore();
    quitting_ = true;
    continueQuit();
    return;
  }
  saveGeometryToPreferences();
  event->accept();
}

void MainWindow::continueQuit() {
  if (!quitting_) return;
  auto* editor = qobject_cast<EditorView*>(stack_->currentWidget());
  if (!editor) {
    quitting_ = false;
    close();
    return;
  }
  // The controller asks or closes; a close brings us back through pop().
  editor->requestClose();
}

void MainWindow::restoreGeometryFromPreferences() {
  const std::string saved = UserDefaults::standard().stringForKey(kGeometryKey);
  if (!saved.empty() && restoreGeometry(QByteArray::fromBase64(QByteArray::fromStdString(saved)))) {
    return;
  }
  // First start: a comfortable size, centred.
  const QRect available = screen() ? screen()->availableGeometry() : QRect(0, 0, 1280, 800);
  resize(std::min(1100, available.width() * 9 / 10), std::min(760, available.height() * 9 / 10));
  move(available.center() - rect().center());
}

void MainWindow::saveGeometryToPreferences() {
  UserDefaults::standard().setObject(kGeometryKey, saveGeometry().toBase64().toStdString());
}

QWidget* makeEmptyRoot(MainWindow* window) {
  auto* root = new QWidget(window);
  root->setObjectName(QStringLiteral("emptyRoot"));
  auto* layout = new QVBoxLayout(root);
  layout->addStretch();
  auto* label =
      new QLabel(MainWindow::tr("Folder browsing is not available in this version.\n"
                                "Open a file to edit it, or start harbor-app with a file name."),
                 root);
  label->setAlignment(Qt::AlignCenter);
  label->setWordWrap(true);
  layout->addWidget(label);
  auto* open = new QPushButton(MainWindow::tr("Open File\u2026"), root);
  open->setObjectName(QStringLiteral("openFile"));
  QObject::connect(open, &QPushButton::clicked, window, [window] {
    const QString path = QFileDialog::getOpenFileName(
        window, MainWindow::tr("Open File"),
        QString::fromStdString(Directories::documentDirectory().string()));
    if (!path.isEmpty()) window->openEditor(path.toStdString());
  });
  auto* row = new QHBoxLayout;
  row->addStretch();
  row->addWidget(open);
  row->addStretch();
  layout->addLayout(row);
  layout->addStretch();
  return root;
}

}  // namespace harbor::gui
