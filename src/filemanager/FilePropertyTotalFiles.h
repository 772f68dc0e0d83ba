#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "filemanager/FilePropertyBase.h"

namespace harbor {

// Whether a name contains a text, ignoring case the Unicode way (full case
// folding), with a fast path for ASCII.
class NameMatcher {
 public:
  explicit NameMatcher(std::string_view text);
  // An empty text matches nothing.
  bool matches(std::string_view name) const;

 private:
  std::string ascii_;  // the text lower-cased, when it is ASCII
  std::u16string folded_;
  bool isAscii_ = true;
};

// What a listing operation reports to its walker.
class IFilePropertyTotalFilesOperation {
 public:
  virtual ~IFilePropertyTotalFilesOperation() = default;
  // One batch per folder.
  virtual void addFiles(std::vector<std::string> files) = 0;
  virtual const FilePropertyOptions& propertyOptions() const = 0;
  virtual bool addOpeartion(std::shared_ptr<Operation> operation, QueuePriority priority) = 0;
  // Whether an entry with this name goes into the result.
  virtual bool isHit(std::string_view name) const {
    (void)name;
    return true;
  }
  // Whether a folder found below the top is walked.
  virtual bool isWalkable(const std::string& folder) const {
    (void)folder;
    return true;
  }
};

// Lists one folder, files and folders alike, hands the list over in one
// batch and then starts an operation per subfolder, so a folder's own entry
// is always in the result before anything inside it. Links are entries, not
// folders.
class FilePropertyTotalFilesOperation : public Operation {
 public:
  FilePropertyTotalFilesOperation(std::string path, IFilePropertyTotalFilesOperation* delegate)
      : path_(std::move(path)), delegate_(delegate) {}

 protected:
  void main() override { loadFiles(); }
  void loadFiles();
  virtual std::shared_ptr<FilePropertyTotalFilesOperation> makeChild(std::string path) const;

  std::string path_;
  IFilePropertyTotalFilesOperation* delegate_;
};

// The same for a name search: only hits go into the batch.
class FilePropertySearchFilesOperation : public FilePropertyTotalFilesOperation {
 public:
  using FilePropertyTotalFilesOperation::FilePropertyTotalFilesOperation;

 protected:
  std::shared_ptr<FilePropertyTotalFilesOperation> makeChild(std::string path) const override;
};

// Every path of a selection, files and folders, in no fixed order.
class FilePropertyTotalFiles : public FilePropertyBase, public IFilePropertyTotalFilesOperation {
 public:
  explicit FilePropertyTotalFiles(std::vector<std::string> urls);
  static std::unique_ptr<FilePropertyTotalFiles> instanceWithFileURL(const std::string& url);

  // The walks of a selection of one item (which is listed itself) and of a
  // list.
  static std::vector<std::string> filesizeWithURL(const std::string& url);
  static std::vector<std::string> filesizeWithURLs(std::vector<std::string> urls);

  // Walks the selection; blocks until done or cancelled.
  std::vector<std::string> execute();
  std::vector<std::string> files() const;

  void addFiles(std::vector<std::string> files) override;
  const FilePropertyOptions& propertyOptions() const override { return _propertyOptions; }
  bool addOpeartion(std::shared_ptr<Operation> operation, QueuePriority priority) override {
    return FilePropertyBase::addOpeartion(std::move(operation), priority);
  }

 protected:
  FilePropertyTotalFiles(std::vector<std::string> urls, std::string queueName);
  // The item a one-item selection was made of.
  virtual void addFiles0(const std::string& path);
  void loadURLS(const std::vector<std::string>& paths);
  virtual std::shared_ptr<FilePropertyTotalFilesOperation> makeOperation(std::string path);
  std::size_t fileCount() const;

 private:
  mutable std::mutex lock_;
  std::vector<std::string> files_;
};

// The paths below a folder whose name contains a text, case-insensitively.
// The folder itself is never a hit. A locked folder may be a hit, but its
// contents are not searched. The search stops itself once it holds 1001
// hits; the batch that crossed the mark stays.
class FilePropertySearchFiles : public FilePropertyTotalFiles {
 public:
  static constexpr std::size_t kHitLimit = 1001;

  FilePropertySearchFiles(std::vector<std::string> urls, std::string searchText);

  static std::vector<std::string> searchWithURL(const std::string& url,
                                                const std::string& searchText);
  static std::vector<std::string> searchWithURLs(std::vector<std::string> urls,
                                                 const std::string& searchText);

  const std::string& searchText() const { return searchText_; }
  // True when the hit limit stopped the search, so the list is not whole.
  bool isTruncated() const { return truncated_; }
  // Full paths of the locked items and their stored values; nullopt when
  // nothing is locked.
  const std::optional<std::map<std::string, std::string>>& passwordHash() const {
    return passwordHash_;
  }

  void addFiles(std::vector<std::string> files) override;
  bool isHit(std::string_view name) const override { return matcher_.matches(name); }
  bool isWalkable(const std::string& folder) const override;
  bool isDirectoryAndExecute(const std::string& path) override;

 protected:
  void addFiles0(const std::string& path) override { (void)path; }
  std::shared_ptr<FilePropertyTotalFilesOperation> makeOperation(std::string path) override;

 private:
  std::string searchText_;
  NameMatcher matcher_;
  std::atomic<bool> truncated_{false};
  std::optional<std::map<std::string, std::string>> passwordHash_;
};

}  // namespace harbor
