#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "browser/FileManagerController.h"

namespace harbor {

// The destination chooser of Copy To and Cut To: a browser whose Paste puts
// the clipboard here and then closes the chooser.
class FileTransferController : public FileManagerController {
 public:
  explicit FileTransferController(std::string folderPath = {});
  std::string className() const override { return "FileTransferController"; }

  void viewDidLoad() override;
  std::shared_ptr<FileManagerBaseController> createFileManager(const std::string& path) override;
  std::vector<ToolbarItem> createToolbarItems(bool editing) override;
  void openSheet() override;
  bool sheetChosen(int tag, const std::string& entry) override;
  void holdItem(const std::string&) override {}
  // "%@ %@ %@": copying or moving, "From", the source folder's name.
  std::string prompt() const;
  void saveCategory() { pasteAction(); }
  void pasteActionEnd(bool cancelled) override;

  std::string sourceFolder;
  std::function<void()> onTransferComplete;
  int depth = 1;  // choosers on the stack, this one included
};

// What a picker reports to: the rows picked so far and where a choice goes.
// Every screen of one picking shares it.
struct PickDirectoryDelegate {
  std::vector<std::string> selectedRows;
  std::function<void(const std::string& relativePath, int tag)> selectDirectory;
  std::function<void(const std::vector<std::string>& files, int tag)> onPickerFiles;
};

// The picker base: a list with no search, long press or swipe; locked
// folders ask before they open.
class PickFileBaseDirectory : public FileManagerController {
 public:
  static constexpr int kTagPickFolderPassword = 3023;
  static constexpr int kTagPickCheckedPassword = 3024;

  explicit PickFileBaseDirectory(std::string folderPath = {});
  std::string className() const override { return "PickFileBaseDirectory"; }
  void viewDidLoad() override;
  bool isSupportSearch() const override { return false; }
  bool isSupportShowIcons() const override { return false; }
  void holdItem(const std::string&) override {}
  void openSheet() override;
  bool sheetChosen(int tag, const std::string& entry) override;
  std::vector<ToolbarItem> createToolbarItems(bool editing) override;
  void selectedCell(const std::string& path) override;
  std::shared_ptr<FileManagerBaseController> createFileManager(const std::string& path) override;
  // Into a folder, keeping the delegate, tag and filter.
  void pushSelfController(const std::string& path);
  virtual void saveCategory() {}
  virtual bool canSave() const { return true; }
  virtual void cancelPick() { closePicker(); }
  void closePicker();
  // The picked rows (the delegate's).
  std::vector<std::string>& pickedRows() { return pickDelegate->selectedRows; }
  bool isRowMarked(const std::string& path) const override;

  std::shared_ptr<PickDirectoryDelegate> pickDelegate = std::make_shared<PickDirectoryDelegate>();
  int pickTag = 0;
  int depth = 1;

 protected:
  virtual std::shared_ptr<PickFileBaseDirectory> makeSame(const std::string& path) const = 0;
  virtual void fileTapped(const std::string& path) { (void)path; }
  // A folder tap after any password: enter it.
  virtual void folderTapped(const std::string& path) { pushSelfController(path); }
  void askFolderPassword(const std::string& path, std::function<void()> then);
};

// Picks a folder; tapping a folder enters it, Done picks the one shown.
class PickDirectoryController : public PickFileBaseDirectory {
 public:
  using PickFileBaseDirectory::PickFileBaseDirectory;
  std::string className() const override { return "PickDirectoryController"; }
  void saveCategory() override;
  // The folder chosen, as a path relative to the documents.
  std::function<void(const std::string&)> onSelectDirectory;

 protected:
  std::shared_ptr<PickFileBaseDirectory> makeSame(const std::string& path) const override;
};

// Picks files: a tap toggles a file; single mode finishes at the first.
class PickFileOnlyController : public PickFileBaseDirectory {
 public:
  using PickFileBaseDirectory::PickFileBaseDirectory;
  std::string className() const override { return "PickFileOnlyController"; }
  void saveCategory() override;
  bool canSave() const override { return !pickDelegate->selectedRows.empty(); }
  void selectAllFiles();
  int singleOrMultiple = 1;  // 0 single

 protected:
  std::shared_ptr<PickFileBaseDirectory> makeSame(const std::string& path) const override;
  void fileTapped(const std::string& path) override;
};

// Picks files and folders through a check box on each row; a selected
// folder stays selected when tapped, an unselected one opens.
class PickFileAndDirectoryController : public PickFileBaseDirectory {
 public:
  using PickFileBaseDirectory::PickFileBaseDirectory;
  std::string className() const override { return "PickFileAndDirectoryController"; }
  void saveCategory() override;
  void cancelPick() override;
  bool checkRow(const std::string& name) override;
  // The check box of a row.
  void toggleCheck(const std::string& path);

 protected:
  std::shared_ptr<PickFileBaseDirectory> makeSame(const std::string& path) const override;
  void fileTapped(const std::string& path) override { toggleCheck(path); }
  void folderTapped(const std::string& path) override;
};

}  // namespace harbor
