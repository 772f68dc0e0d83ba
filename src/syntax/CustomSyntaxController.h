#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/ScreenPort.h"
#include "prefs/EditorUserDefaults.h"

namespace harbor {

class AddSyntaxViewController;

class ICustomSyntaxFile {
 public:
  virtual ~ICustomSyntaxFile() = default;
  virtual void onSaveSyntaxFileSuccess(AddSyntaxViewController& controller, bool isEdit) = 0;
};

// The list of the user's syntax files with the values assigned to each: by
// extension, or (isOnlyFile) by exact file name.
class CustomSyntaxBaseConroller : public ICustomSyntaxFile {
 public:
  CustomSyntaxBaseConroller(IScreenPort* port, bool isOnlyFile);

  // Drops files no entry names, then reads the store.
  void viewDidLoad();
  void loadData();
  // Each row: the stx file name and its values, in the order of `sections`.
  std::vector<std::pair<std::string, std::string>> rows() const;

  // The edit screen, empty (add button) or for a row (edit mode); nothing
  // for a row that is not there.
  std::shared_ptr<AddSyntaxViewController> addSyntax(IScreenPort* port);
  std::shared_ptr<AddSyntaxViewController> didSelectRow(std::size_t row, IScreenPort* port);
  bool deleteRow(std::size_t row);
  // The registry takes the store's new state; then the list reloads.
  void reloadApplicationSyntax();

  void onSaveSyntaxFileSuccess(AddSyntaxViewController& controller, bool isEdit) override;

  EditorUserDefaults::Settings infos;
  std::vector<std::string> sections;  // the keys of infos, ignoring case
  std::vector<std::size_t> selectedRows;
  const bool isOnlyFile;

 protected:
  IScreenPort* port_;
  std::mutex mutex_;
};

class CustomSyntaxController : public CustomSyntaxBaseConroller {
 public:
  explicit CustomSyntaxController(IScreenPort* port) : CustomSyntaxBaseConroller(port, false) {}
};

class CustomSyntaxOnlyForFile : public CustomSyntaxBaseConroller {
 public:
  explicit CustomSyntaxOnlyForFile(IScreenPort* port) : CustomSyntaxBaseConroller(port, true) {}
};

// Assigns one stx file to values: a new assignment or an edit of one.
class AddSyntaxViewController {
 public:
  static constexpr int kTagAlert = 100;

  explicit AddSyntaxViewController(IScreenPort* port) : port_(port) {}

  // Set by the list before the screen shows.
  bool isOnlyForFile = false;
  bool isEdit = false;
  std::string stxFileName;
  std::string value;  // the value field's text
  std::string tempStxFilePath;
  std::vector<std::size_t> selectedRows;
  ICustomSyntaxFile* delegate = nullptr;

  // The screen that shows a file in the editor, set by the application.
  static std::function<void(const std::string& path)> openInEditor;

  // The file picker's answer: refused ("FileExists") when the folder already
  // holds a file of that name other than this entry's own.
  bool pickStxFile(const std::string& path);
  bool isExistsSameFile(const std::string& fileName) const;
  // The name the stx field shows.
  std::string displayedStxName() const;
  std::optional<std::string> getCurrentStxFilePath() const;
  bool isViewButtonHidden() const { return !getCurrentStxFilePath(); }
  void viewStxFile() const;

  // True when the assignment was stored and the screen closed.
  bool saveContent();

 private:
  void saveSuccess();
  void alert(const std::string& key, const std::string& text);
  bool saveSettings(const std::string& fileName, const std::string& oldName, Error* error);
  bool removeEntry(const std::string& fileName);

  IScreenPort* port_;
};

}  // namespace harbor
