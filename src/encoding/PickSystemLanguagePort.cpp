#include "encoding/PickSystemLanguagePort.h"

namespace harbor {

PickSystemLanguagePortView::PickSystemLanguagePortView(std::shared_ptr<IScreenPort> port)
    : port_(std::move(port)), picker_(*this) {}

std::shared_ptr<PickSystemLanguagePortView> PickSystemLanguagePortView::create(
    std::shared_ptr<IScreenPort> port, const std::string& fullpath, bool isNotification) {
  auto view = std::shared_ptr<PickSystemLanguagePortView>(
      new PickSystemLanguagePortView(port ? std::move(port) : ScreenPort::shared()));
  view->picker_.fullpath = fullpath;
  view->picker_._isNotification = isNotification;
  return view;
}

void PickSystemLanguagePortView::show() {
  picker_.viewDidLoad();
  ScreenSheet sheet;
  sheet.tag = kTagPickEncoding;
  sheet.key = "Encoding";
  sheet.rows = picker_.languagesArray;
  sheet.text = picker_.systemLanguage;
  sheet.screenClass = "PickSystemLanguage";
  sheet.screenPath = picker_.fullpath;
  // The view lives until the answer: the sheet's handler holds it.
  auto self = shared_from_this();
  port_->showSheet(sheet, [self](int row) {
    if (row >= 0) self->picker_.didSelectRow(row);
    self->closed_ = true;
  });
}

}  // namespace harbor
