#include "filemanager/PickFileOrderType.h"

#include "filemanager/CommonUtil.h"
#include "platform/NotificationCenter.h"
#include "platform/NotificationNames.h"

namespace harbor {

std::vector<std::string> PickFileOrderType::rows() const {
  std::vector<std::string> out;
  for (int i = 0; i < kRowCount; ++i) out.push_back(CommonUtil::getFileDisplayTypeString(i));
  return out;
}

int PickFileOrderType::selectedRow() const {
  int type = CommonUtil::getFileDisplayType();
  return type >= 0 && type < kRowCount ? type : 0;
}

void PickFileOrderType::didSelectRow(int index) {
  if (index < 0 || index >= kRowCount) index = 0;
  CommonUtil::setFileDisplayType(index);
  NotificationCenter::defaultCenter().post(notifications::HBFileOrderTypeChangeNotication);
}

}  // namespace harbor
