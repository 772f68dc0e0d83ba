#include "encoding/PickSystemLanguage.h"

#include "encoding/EncodingUtil.h"
#include "platform/NotificationCenter.h"
#include "platform/NotificationNames.h"
#include "platform/Unicode.h"

namespace harbor {

PickSystemLanguage::PickSystemLanguage(IPickSystemLanguageView& view) : view_(view) {}

void PickSystemLanguage::viewDidLoad() {
  languagesArray = EncodingUtil::webEncodingKeys();
  if (systemLanguage.empty()) {
    systemLanguage = fullpath.empty() ? EncodingUtil::getSystemDefaultEncoding()
                                      : EncodingUtil::getFileEncoding(fullpath).value_or("");
  }
  iSel = getSelectInt();
  view_.reloadRows();
  view_.markRow(iSel);
  if (iSel >= 0) view_.scrollToRow(iSel);
}

std::string PickSystemLanguage::textOfRow(int row) const {
  if (row < 0 || row >= numberOfRows()) return {};
  return EncodingUtil::getDefaultEncodingDescription(languagesArray[static_cast<size_t>(row)]);
}

int PickSystemLanguage::getSelectInt() const {
  for (int i = 0; i < numberOfRows(); ++i) {
    if (equalsIgnoreCase(languagesArray[static_cast<size_t>(i)], systemLanguage)) return i;
  }
  return -1;
}

void PickSystemLanguage::didSelectRow(int row) {
  if (row < 0 || row >= numberOfRows()) return;
  systemLanguage = languagesArray[static_cast<size_t>(row)];

  if (_isNotification) {
    markAndPost(row);
    if (view_.isCancellable()) view_.close();
    return;
  }
  // A delegate that keeps the name itself (the settings screen) gets it alone.
  if (delegate) {
    delegate->saveSystemLang(systemLanguage);
    return;
  }
  if (!fullpath.empty()) {
    EncodingUtil::saveFileEncoding(fullpath, systemLanguage);
    if (view_.isCancellable()) view_.close();
  } else {
    EncodingUtil::saveSystemDefaultEncoding(systemLanguage);
  }
  markAndPost(row);
}

void PickSystemLanguage::markAndPost(int row) {
  iSel = row;
  view_.markRow(row);
  NotificationCenter::defaultCenter().post(notifications::HBEncodingChangeNotication,
                                           systemLanguage);
}

}  // namespace harbor
