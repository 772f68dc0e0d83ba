#include "gui/PdfView.h"

#include <QLabel>
#include <QPdfDocument>
#include <QPdfPageNavigator>
#include <QPdfView>
#include <QVBoxLayout>

#include "gui/MainWindow.h"
#include "gui/PagingBar.h"
#include "gui/Text.h"
#include "platform/Strings.h"

namespace harbor::gui {

PdfView::PdfView(const std::string& path, QWidget* parent) : QWidget(parent) {
  setObjectName(QStringLiteral("pdfView"));
  setProperty("crumb", MainWindow::crumbFor(path));
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  bar_ = new PagingBar(QStringLiteral("pages"), this);
  bar_->row()->addStretch(1);
  layout->addWidget(bar_);

  document_ = new QPdfDocument(this);
  view_ = new QPdfView(this);
  view_->setObjectName(QStringLiteral("pdfPages"));
  view_->setPageMode(QPdfView::PageMode::MultiPage);
  view_->setZoomMode(QPdfView::ZoomMode::FitToWidth);
  view_->setDocument(document_);
  layout->addWidget(view_, 1);

  connect(bar_, &PagingBar::stepped, this, [this](int by) { goToPage(currentPage() + by); });
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

QLabel* PdfView::pagesLabel() const {
  return bar_->findChild<QLabel*>(QStringLiteral("pages"));
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
  bar_->setPosition(currentPage(), count);
  if (document_->status() == QPdfDocument::Status::Error) bar_->setPositionText(loc("Failure"));
}

}  // namespace harbor::gui
