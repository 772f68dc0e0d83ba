#pragma once

#include <memory>
#include <string>
#include <vector>

#include "archive/ZipEntry.h"
#include "browser/FileManagerController.h"

namespace harbor {

class PickSystemLanguagePortView;

// Browses an archive as if it were a folder, without extracting it. Every
// screen of one archive shares the reader and what was learnt of its password.
class ViewArchiveController : public FileManagerController {
 public:
  static constexpr int kTagArchiveOptions = 80003;

  // The root screen of the archive at `archivePath`.
  explicit ViewArchiveController(std::string archivePath);
  ~ViewArchiveController() override;
  std::string className() const override { return "ViewArchiveController"; }

  void viewDidLoad() override;
  bool isAutoExtract() const override { return false; }
  bool isSupportSearch() const override { return false; }
  bool keepsArchive() const override { return true; }

  const ZipEntry::Ptr& entry() const { return _entry; }
  void setEntry(ZipEntry::Ptr entry) { _entry = std::move(entry); }
  bool isRootScreen() const;
  std::string archiveTitle() const;

  // Rows are the entry's children in archive order.
  std::vector<Row> rows() const override;
  std::string pathOfRow(const std::string& name) const override;
  bool tapRow(const std::string& name) override;
  bool holdRow(const std::string& name) override;
  void openSheet() override;
  bool sheetChosen(int tag, const std::string& entry) override;
  bool isRowMarked(const std::string& path) const override;
  std::string fullRelativePath() const override;

  void tapEntry(const ZipEntry::Ptr& entry);
  void holdEntry(const ZipEntry::Ptr& entry);
  // Extracts the selected entries, or everything, beside the archive (or
  // under `destinationRelative` when given).
  void unArchive(const std::string& destinationRelative = {});
  void viewFile(const ZipEntry::Ptr& entry);
  void changeEncoding();
  const std::vector<ZipEntry::Ptr>& selectedEntries() const { return _selectedEntries; }
  // Whether listing has finished (with or without entries).
  bool isListed() const { return _session->listed; }

  bool checkPassword() override;
  void unzipFinished() override;

 private:
  struct Session {
    std::string archivePath;
    std::shared_ptr<IArchive> reader;
    std::string password;
    bool listed = false;
  };
  ViewArchiveController(std::shared_ptr<Session> session, ZipEntry::Ptr entry);
  void loadArchive();
  ZipEntry::Ptr childNamed(const std::string& name) const;
  void viewThread(const ZipEntry::Ptr& entry);

  std::shared_ptr<Session> _session;
  ZipEntry::Ptr _entry;
  std::vector<ZipEntry::Ptr> _selectedEntries;
  std::shared_ptr<PickSystemLanguagePortView> _encodingPicker;
};

}  // namespace harbor
