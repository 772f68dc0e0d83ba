#pragma once

#include <string>

#include "encoding/StringEncodings.h"

namespace harbor {

// One row of an encoding list.
class EncodingItem {
 public:
  EncodingItem() = default;
  // localizedName falls back to name when the table has no label.
  EncodingItem(StringEncoding encoding, std::string name);

  // Number 4, name "Automatic" and the localised word for it.
  static EncodingItem automatic();
  bool isAutomatic() const { return name == "Automatic"; }

  // By name; by localised name.
  int compare(const EncodingItem& other) const;
  int localizedCompare(const EncodingItem& other) const;

  // "<EncodingItem:0x...>name:localizedName"
  std::string description() const;

  StringEncoding encoding = kUTF8StringEncoding;
  std::string name;
  std::string localizedName;
};

}  // namespace harbor
