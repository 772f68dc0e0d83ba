#pragma once

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTreeWidget>
#include <QWidget>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "editor/FindTextInString.h"

namespace harbor {
class FileTextInProject;
}

namespace harbor::gui {

class EditorView;
class MainWindow;

// Searches every file under a folder and lists the hits by file; a hit opens
// the editor with the hit selected. The search runs off the main thread and
// stops at Cancel.
class FindInFilesView : public QWidget {
  Q_OBJECT
 public:
  FindInFilesView(const std::string& folder, MainWindow& window, QWidget* parent = nullptr);
  ~FindInFilesView() override;

  void start();
  void cancel();
  bool isRunning() const { return running_; }
  const std::string& folder() const { return folder_; }

  QLineEdit* patternField() const { return pattern_; }
  QTreeWidget* resultTree() const { return tree_; }
  QPushButton* findButton() const { return find_; }
  QPushButton* cancelButton() const { return cancel_; }
  QLabel* statusLabel() const { return status_; }
  QCheckBox* caseBox() const { return case_; }
  QCheckBox* wordBox() const { return word_; }
  QCheckBox* regexBox() const { return regex_; }

  // Opens `path` in the window's editor and selects `range` once it loaded.
  static EditorView* openAt(MainWindow& window, const std::string& path, TextRange range);

 signals:
  void finished();

 private:
  struct Search;
  void run(std::shared_ptr<Search> search);
  void addHits(std::int64_t tag, const std::string& path, std::vector<FindTextItem> items);
  void fileDone(std::size_t done, std::size_t total);
  void searchEnded(bool cancelled, std::uint64_t hits, std::size_t files, std::string error);
  void activate(QTreeWidgetItem* item);
  void setRunning(bool running);

  std::string folder_;
  MainWindow& window_;
  QLineEdit* pattern_;
  QCheckBox* case_;
  QCheckBox* word_;
  QCheckBox* regex_;
  QPushButton* find_;
  QPushButton* cancel_;
  QProgressBar* progress_;
  QLabel* status_;
  QTreeWidget* tree_;
  bool running_ = false;
  std::shared_ptr<Search> search_;
  std::thread worker_;
};

// The rows of `--show find-in-files [PATH]`.
void registerFindViews();

}  // namespace harbor::gui
