#pragma once

#include <QLabel>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QSlider>
#include <QTextBlock>
#include <QTimer>
#include <QToolButton>
#include <QWidget>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "editor/EditorBaseController.h"
#include "gui/QtScreenPort.h"
#include "gui/Theme.h"

class QProgressBar;
class QToolBar;

namespace harbor::gui {

class EditorView;

// The text widget. It never edits its own document: keys go to the
// controller, and the document follows the controller's storage.
class CodeEditor : public QPlainTextEdit {
  Q_OBJECT
 public:
  explicit CodeEditor(EditorView& owner);

  // The document position of a storage offset is the same number: carriage
  // returns are mirrored as one invisible unit so offsets stay aligned.
  QTextCharFormat formatAt(int offset) const;
  int gutterWidth() const;
  QTextBlock topBlock() const { return firstVisibleBlock(); }
  void paintGutter(QPaintEvent* event, QWidget* gutter);
  void caretMoved();

 protected:
  void keyPressEvent(QKeyEvent* event) override;
  void inputMethodEvent(QInputMethodEvent* event) override;
  void insertFromMimeData(const QMimeData* source) override;
  QMimeData* createMimeDataFromSelection() const override;
  void contextMenuEvent(QContextMenuEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void paintEvent(QPaintEvent* event) override;

 private:
  EditorView& owner_;
  QWidget* gutter_;
  int bandBlock_ = -1;
  friend class EditorView;
};

// The keys above the text: a tap runs the key, a long press (held, or a
// right click) runs its second action.
class KeyBar : public QScrollArea {
  Q_OBJECT
 public:
  explicit KeyBar(QWidget* parent);
  void setKeys(const std::vector<std::string>& titles);
  QToolButton* keyButton(int index) const;
  static constexpr int kLongPressMs = 450;

 signals:
  void tapped(int index);
  void longPressed(int index);

 private:
  QWidget* row_;
  std::vector<QToolButton*> buttons_;
};

// The editor screen: binds EditorBaseController to widgets.
class EditorView : public QWidget, public IEditorView {
  Q_OBJECT
 public:
  // `isNew` opens the path as a new file (the template, saved under a free name).
  explicit EditorView(const std::string& path, bool isNew = false, QWidget* parent = nullptr);
  ~EditorView() override;

  EditorBaseController& controller() { return *controller_; }
  CodeEditor* textWidget() const { return editor_; }
  KeyBar* keyBar() const { return keyBar_; }
  QListWidget* suggestionList() const { return suggestions_; }
  QPushButton* editButton() const { return editButton_; }
  QString title() const { return title_; }
  bool isClosed() const { return closed_; }
  // Paragraphs whose formats the last restyle replaced.
  int restyledParagraphs() const { return restyled_; }

  // Leaving by Back or the window: the controller decides whether to ask.
  void requestClose();
  // Ctrl+S: writes the text and keeps the place; the screen stays.
  void saveInPlace();

  // Brings the widgets in line with the controller after it acted: pending
  // colours, caret, suggestions, font, gutter.
  void sync();

  // ---- IEditorView ----
  void showAlert(const ScreenAlert& alert, AlertReply reply) override;
  void showSheet(const ScreenSheet& sheet, SheetReply reply) override;
  void dismissSheet() override;
  void showMessage(const std::string& key, const std::string& text) override;
  void setTitle(const std::string& title) override;
  void setBusy(bool busy) override;
  void setStatus(const std::string& status) override;
  void setProgress(double value) override;
  void close() override;
  bool supportsRoute(ScreenRoute route) const override;
  void openRoute(ScreenRoute route, const std::string& path, const std::string& title) override;
  void setEditable(bool editable) override;
  void setKeys(const std::vector<std::string>& titles) override;
  void showSuggestions(const std::vector<std::u16string>& items) override;
  void scrollToOffset(std::size_t offset) override;
  void scrollToHeight(double y) override;
  double contentHeight() const override;
  double viewHeight() const override;
  void pickEncoding(const std::string& path, const std::string& current) override;

 signals:
  void titleChanged(const QString& title);
  void closed();
  // A question was closed unanswered (Escape): whatever waited for it stops.
  void questionDropped();
  void busyChanged(bool busy);

 protected:
  void showEvent(QShowEvent* event) override;
  void changeEvent(QEvent* event) override;

 private:
  friend class CodeEditor;
  void applyEdit(TextRange edited, std::ptrdiff_t change);
  void markDirty(std::size_t from, std::size_t to);
  void scheduleSync();
  void flushFormats();
  // Re-mirrors the runs of the paragraphs over [from, to); answers how many
  // changed.
  int restyle(std::size_t from, std::size_t to);
  // The paragraphs on screen, with a margin, as document offsets.
  std::pair<std::size_t, std::size_t> visibleSpan() const;
  void restyleVisibleBacklog();
  void drainBacklog();
  void syncCursorFromController();
  void widgetSelectionChanged();
  void placeSuggestions();
  void reportVisibleRange();
  void applyFont();
  void applyColors();
  void buildToolbar();
  void updateSlider();
  TextRange widgetSelection() const;
  QTextCharFormat colorFormat(const Color& color) const;

  std::shared_ptr<EditorBaseController> controller_;
  QtScreenPort port_;
  CodeEditor* editor_ = nullptr;
  KeyBar* keyBar_ = nullptr;
  QListWidget* suggestions_ = nullptr;
  QPushButton* editButton_ = nullptr;
  QToolBar* toolbar_ = nullptr;
  QSlider* slider_ = nullptr;
  QProgressBar* busy_ = nullptr;
  QLabel* sizeLabel_ = nullptr;
  QString title_;
  std::vector<std::u16string> shownSuggestions_;
  std::size_t editToken_ = 0;
  std::size_t attributeToken_ = 0;
  // Listens for the picker's choice only while it is open.
  std::uint64_t encodingToken_ = 0;
  // Set while the widget changes under the controller's direction, so the
  // widget's own signals are not taken for the user's.
  bool mirroring_ = false;
  bool dirty_ = false;
  std::size_t dirtyFrom_ = 0;
  std::size_t dirtyTo_ = 0;
  bool syncPending_ = false;
  // Spans still to mirror after a large restyle: what is on screen goes
  // first, the rest follows while the application is idle.
  std::vector<std::pair<std::size_t, std::size_t>> backlog_;
  QTimer* backlogTimer_ = nullptr;
  int restyled_ = 0;
  bool appeared_ = false;
  bool closed_ = false;
  double appliedFontSize_ = 0;
  EditorColors colors_;
  mutable std::map<std::uint32_t, QTextCharFormat> formats_;
};

}  // namespace harbor::gui
