#pragma once

#include <QWidget>
#include <string>

class QLabel;
class QPdfDocument;
class QPdfView;
class QToolButton;

namespace harbor::gui {

// A PDF document, all pages in one scroll, fitted to the width.
class PdfView : public QWidget {
  Q_OBJECT
 public:
  explicit PdfView(const std::string& path, QWidget* parent = nullptr);
  ~PdfView() override;

  int pageCount() const;
  int currentPage() const;
  void goToPage(int page);
  QLabel* pagesLabel() const { return pages_; }

 private:
  void refresh();

  QPdfDocument* document_ = nullptr;
  QPdfView* view_ = nullptr;
  QLabel* pages_ = nullptr;
  QToolButton* previous_ = nullptr;
  QToolButton* next_ = nullptr;
};

}  // namespace harbor::gui
