#pragma once

#include <string>
#include <vector>

namespace harbor {

// The settings list of the four list orders. Choosing a row stores the order
// and tells every browser.
class PickFileOrderType {
 public:
  static constexpr int kRowCount = 4;

  // The localised titles, in the order of the values 0 to 3.
  std::vector<std::string> rows() const;
  // The row of the order in force; an order not listed shows as row 0.
  int selectedRow() const;
  // An index that names no row selects row 0.
  void didSelectRow(int index);
};

}  // namespace harbor
