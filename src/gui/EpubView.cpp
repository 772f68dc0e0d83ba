#include "gui/EpubView.h"

#include <QComboBox>
#include <QFileInfo>
#include <QLabel>
#include <QToolBar>
#include <filesystem>

#include "gui/MainWindow.h"
#include "gui/Text.h"
#include "platform/Strings.h"
#include "viewers/epub/EpubReader.h"
#include "viewers/epub/EpubUtil.h"

namespace harbor::gui {

EpubView::EpubView(const std::string& path, QWidget* parent) : WebPageView(parent) {
  setObjectName(QStringLiteral("epubView"));
  setProperty("crumb", MainWindow::crumbFor(path));
  Error error;
  if (auto book = EpubUtil::openBook(path, &error)) {
    folder_ = book->folder;
    EpubReader reader(folder_);
    reader.parser();
    chapters_ = reader.chapters();
    const auto& meta = reader.metadataInfo();
    if (auto title = meta.find("dc:title"); title != meta.end() && !title->second.empty())
      setWindowTitle(QString::fromStdString(title->second));
  }
  contents_ = new QComboBox(this);
  contents_->setObjectName(QStringLiteral("contents"));
  contents_->setSizeAdjustPolicy(QComboBox::AdjustToContents);
  contents_->setMinimumContentsLength(16);
  for (const std::string& chapter : chapters_) {
    // Named by its file until the page tells its own title.
    contents_->addItem(QFileInfo(QString::fromStdString(chapter)).completeBaseName());
  }
  addPaging([this](int step) { showChapter(chapter_ + step); });
  toolbar()->insertWidget(toolbar()->actions().value(0), contents_);
  connect(contents_, &QComboBox::activated, this, [this](int index) { showChapter(index); });
  if (web()) {
    web()->onTitleChanged = [this](const QString& title) {
      if (chapter_ >= 0 && !title.trimmed().isEmpty() &&
          !title.startsWith(QLatin1String("file:")) && !title.endsWith(QLatin1String(".xhtml")) &&
          !title.endsWith(QLatin1String(".html")))
        contents_->setItemText(chapter_, title.trimmed());
    };
  }
  if (chapters_.empty()) {
    // A broken book shows nothing to read, and says so.
    updatePaging(0, 0);
    if (web())
      web()->setHtml(QStringLiteral("<p style='font-family:sans-serif'>%1</p>")
                         .arg(loc("Failure").toHtmlEscaped()));
    return;
  }
  showChapter(0);
}

void EpubView::showChapter(int index) {
  if (index < 0 || index >= static_cast<int>(chapters_.size())) return;
  chapter_ = index;
  contents_->setCurrentIndex(index);
  updatePaging(index, static_cast<int>(chapters_.size()));
  std::string relative = chapters_[static_cast<std::size_t>(index)];
  const auto hash = relative.find('#');
  QUrl url = QUrl::fromLocalFile(
      QString::fromStdString((std::filesystem::path(folder_) / relative.substr(0, hash)).string()));
  if (hash != std::string::npos) url.setFragment(QString::fromStdString(relative.substr(hash + 1)));
  load(url);
}

}  // namespace harbor::gui
