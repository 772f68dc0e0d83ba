#pragma once

#include <QWidget>
#include <string>

class QLabel;
class QPdfDocument;
class QPdfView;

namespace harbor::gui {

class PagingBar;

// A PDF document, all pages in one scroll, fitted to the width.
class PdfView : public QWidget {
  Q_OBJECT
 public:
  explicit PdfView(const std::string& path, QWidget* parent = nullptr);
  ~PdfView() override;

  int pageCount() const;
  int currentPage() const;
  void goToPage(int page);
  QLabel* pagesLabel() const;

 private:
  void refresh();

  QPdfDocument* document_ = nullptr;
  QPdfView* view_ = nullptr;
  PagingBar* bar_ = nullptr;
};

}  // namespace harbor::gui
