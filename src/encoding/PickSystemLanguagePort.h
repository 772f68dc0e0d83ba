#pragma once

#include <memory>
#include <string>

#include "encoding/PickSystemLanguage.h"
#include "platform/ScreenPort.h"

namespace harbor {

// The encoding picker shown through the screen port: its rows go out as one
// sheet (entries are the charset names, the checked one in `text`), and the
// entry chosen is the picker's row. Closing pops the screen.
class PickSystemLanguagePortView : public IPickSystemLanguageView,
                                   public std::enable_shared_from_this<PickSystemLanguagePortView> {
 public:
  static constexpr int kTagPickEncoding = 3100;

  // A picker for `fullpath` ("" for the default encoding).
  static std::shared_ptr<PickSystemLanguagePortView> create(std::shared_ptr<IScreenPort> port,
                                                            const std::string& fullpath,
                                                            bool isNotification);
  // Loads the rows and asks.
  void show();

  void reloadRows() override {}
  void markRow(int row) override { markedRow_ = row; }
  void scrollToRow(int) override {}
  bool isCancellable() const override { return true; }
  void close() override { closed_ = true; }

  PickSystemLanguage& picker() { return picker_; }
  int markedRow() const { return markedRow_; }
  bool isClosed() const { return closed_; }

 private:
  explicit PickSystemLanguagePortView(std::shared_ptr<IScreenPort> port);
  std::shared_ptr<IScreenPort> port_;
  PickSystemLanguage picker_;
  int markedRow_ = -1;
  bool closed_ = false;
};

}  // namespace harbor
