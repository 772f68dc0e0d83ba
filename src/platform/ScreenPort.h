#pragma once

#include <functional>
#include <string>
#include <vector>

namespace harbor {

// A text field of an alert: its placeholder and its starting text.
struct ScreenField {
  std::string placeholder;
  std::string text;
};

// An alert: `tag` tells the screen which question answered, `key` is the
// localisation key of the text, `text` the words shown.
struct ScreenAlert {
  int tag = 0;
  std::string key;
  std::string text;
  std::vector<std::string> buttons;
  std::vector<ScreenField> fields;
};

struct ScreenSheet {
  int tag = 0;
  std::vector<std::string> rows;
};

// Places a screen hands a file to; a port without a service for one says so
// and the screen leaves its row out.
enum class ScreenRoute { Preview, HandOver, Print, Mail };

// The one way every screen talks to the user. Replies arrive on the main
// queue and call the handler the screen gave.
class IScreenPort {
 public:
  using AlertReply = std::function<void(int button, const std::vector<std::string>& fields)>;
  using SheetReply = std::function<void(int row)>;

  virtual ~IScreenPort() = default;
  virtual void showAlert(const ScreenAlert& alert, AlertReply reply) = 0;
  virtual void showSheet(const ScreenSheet& sheet, SheetReply reply) = 0;
  virtual void dismissSheet() {}
  // A short notice with no answer.
  virtual void showMessage(const std::string& key, const std::string& text) = 0;
  virtual void setTitle(const std::string& title) = 0;
  virtual void setBusy(bool busy) = 0;
  virtual void setStatus(const std::string&) {}
  virtual void setProgress(double) {}
  // The screen is done; the port takes it away.
  virtual void close() = 0;
  virtual bool supportsRoute(ScreenRoute) const { return false; }
  virtual void openRoute(ScreenRoute, const std::string& path, const std::string& title) {
    (void)path;
    (void)title;
  }
};

}  // namespace harbor
