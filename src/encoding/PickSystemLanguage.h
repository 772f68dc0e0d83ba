#pragma once

#include <string>
#include <vector>

namespace harbor {

// What the encoding picker needs from its view.
class IPickSystemLanguageView {
 public:
  virtual ~IPickSystemLanguageView() = default;
  virtual void reloadRows() = 0;
  // One row carries the check mark; -1 clears it.
  virtual void markRow(int row) = 0;
  virtual void scrollToRow(int row) = 0;
  // Presented with a way to cancel (a sheet), so it closes after a choice.
  virtual bool isCancellable() const = 0;
  virtual void close() = 0;
};

// A screen that takes the chosen name itself instead of the picker storing it.
class IPickSystemLanguageDelegate {
 public:
  virtual ~IPickSystemLanguageDelegate() = default;
  virtual void saveSystemLang(const std::string& name) = 0;
};

// The encoding picker: the offered charset names with the current one
// checked. It stores the choice for one file (fullpath), as the default, or
// hands it to a delegate, and broadcasts HBEncodingChangeNotication.
class PickSystemLanguage {
 public:
  explicit PickSystemLanguage(IPickSystemLanguageView& view);

  // Loads the rows and checks the current name.
  void viewDidLoad();
  int numberOfRows() const { return static_cast<int>(languagesArray.size()); }
  std::string textOfRow(int row) const;
  void didSelectRow(int row);
  // The row whose key equals systemLanguage, ignoring case; -1 for none.
  int getSelectInt() const;

  std::vector<std::string> languagesArray;
  IPickSystemLanguageDelegate* delegate = nullptr;
  std::string systemLanguage;
  std::string fullpath;
  bool _isNotification = false;
  int iSel = -1;

 private:
  void markAndPost(int row);

  IPickSystemLanguageView& view_;
};

}  // namespace harbor
