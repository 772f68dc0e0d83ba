#include "gui/PdfView.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPdfDocument>
#include <QPdfPageNavigator>
#include <QPdfView>
#include <QToolButton>
#include <QVBoxLayout>

#include "gui/MainWindow.h"
#include "platform/Strings.h"

namespace harbor::gui {

namespace {
QString loc(const char* key) {
  return QString::fromStdString(localizedString(key));
}
}  // namespace

PdfView::PdfView(const std::string& path, QWidget* parent) : QWidget(parent) {
  setObjectName(QStringLiteral("pdfView"));
  setProperty("crumb", MainWindow::crumbFor(path));
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  auto* bar = new QWidget(this);
  auto* barLayout = new QHBoxLayout(bar);
  barLayout->setContentsMargins(6, 4, 6, 4);
  previous_ = new QToolButton(bar);
  previous_->setObjectName(QStringLiteral("previous"));
  previous_->setText(QStringLiteral("\u2039 ") + loc("Previous"));
  next_ = new QToolButton(bar);
  next_->setObjectName(QStringLiteral("next"));
  next_->setText(loc("Next") + QStringLiteral(" \u203a"));
  pages_ = new QLabel(bar);
  pages_->setObjectName(QStringLiteral("pages"));
  barLayout->addWidget(previous_);
  barLayout->addWidget(pages_);
  barLayout->addWidget(next_);
  barLayout->addStretch(1);
  layout->addWidget(bar);

  document_ = new QPdfDocument(this);
  view_ = new QPdfView(this);
  view_->setObjectName(QStringLiteral("pdfPages"));
  view_->setPageMode(QPdfView::PageMode::MultiPage);
  view_->setZoomMode(QPdfView::ZoomMode::FitToWidth);
  view_->setDocument(document_);
  layout->addWidget(view_, 1);

  connect(previous_, &QToolButton::clicked, this, [this] { goToPage(currentPage() - 1); });
  connect(next_, &QToolButton::clicked, this, [this] { goToPage(currentPage() + 1); });
  connect(view_->pageNavigator(), &QPdfPageNavigator::currentPageChanged, this,
          [this] { refresh(); });
  connect(document_, &QPdfDocument::statusChanged, this, [this] { refresh(); });
  document_->load(QString::fromStdString(path));
  refresh();
}

PdfView::~PdfView() {
  // Closing the document signals a change of status: nobody here listens.
  document_->disconnect(this);
  view_->pageNavigator()->disconnect(this);
  view_->setDocument(nullptr);
  delete document_;
}

int PdfView::pageCount() const {
  return document_->status() == QPdfDocument::Status::Ready ? document_->pageCount() : 0;
}

int PdfView::currentPage() const {
  return view_->pageNavigator()->currentPage();
}

void PdfView::goToPage(int page) {
  if (page < 0 || page >= pageCount()) return;
  view_->pageNavigator()->jump(page, QPointF(), view_->pageNavigator()->currentZoom());
  refresh();
}

void PdfView::refresh() {
  const int count = pageCount();
  if (document_->status() == QPdfDocument::Status::Error) {
    pages_->setText(loc("Failure"));
  } else {
    pages_->setText(QStringLiteral("%1 / %2").arg(count ? currentPage() + 1 : 0).arg(count));
  }
  previous_->setEnabled(count > 0 && currentPage() > 0);
  next_->setEnabled(currentPage() + 1 < count);
}

}  // namespace harbor::gui
