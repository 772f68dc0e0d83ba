#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "filemanager/FilePropertyBase.h"

namespace harbor {

class IActionProgress;

// What a folder copy asks of the staged copy that runs it.
class IFilePropertyCopyURLSOperaion {
 public:
  virtual ~IFilePropertyCopyURLSOperaion() = default;
  virtual bool addOpeartion(std::shared_ptr<Operation> operation, QueuePriority priority) = 0;
  virtual const std::string& tempFolder() const = 0;
  virtual IActionProgress* progressDelegate() const = 0;
  virtual const FilePropertyOptions& propertyOptions() const = 0;
  virtual bool createFolder(const std::string& path) = 0;
  virtual bool createFile(const std::string& path, const std::string& destPath) = 0;
  virtual bool createSymblink(const std::string& path, const std::string& destPath,
                              const std::string& targetPath) = 0;
  // Something could not be copied; the whole copy fails.
  virtual void copyFailed(Error error) = 0;
};

// Copies the entries of one folder into the staging folder, at
// <tempFolder><relativePath>/<folderName>, and starts an operation per
// subfolder.
class FilePropertyCopyURLSOperaion : public Operation {
 public:
  FilePropertyCopyURLSOperaion(std::string sourceFolder, std::string relativePath,
                               std::string folderName, IFilePropertyCopyURLSOperaion* delegate)
      : sourceFolder_(std::move(sourceFolder)),
        relativePath_(std::move(relativePath)),
        folderName_(std::move(folderName)),
        delegate_(delegate) {}

 protected:
  void main() override;

 private:
  std::string sourceFolder_;
  std::string relativePath_;
  std::string folderName_;
  IFilePropertyCopyURLSOperaion* delegate_;
};

// An all-or-nothing copy of a selection into a folder. Everything is copied
// into a staging folder first and moved into place only when all of it is
// there, each top-level item under a free name ("a 2.txt"). A cancelled or
// failed copy removes the staging folder and leaves the destination as it
// was. Links are copied as links; sockets, pipes and devices are left out.
// The staging folder sits in the application's temporary folder, or, when
// that is on another file system than the destination, hidden inside the
// destination, so the final moves are renames.
class FilePropertyCopyURLS : public FilePropertyBase, public IFilePropertyCopyURLSOperaion {
 public:
  FilePropertyCopyURLS(std::vector<std::string> urls, std::string desFolder,
                       IActionProgress* delegate);
  ~FilePropertyCopyURLS() override;

  static bool executeWithFileURL(const std::string& url, const std::string& desFolder,
                                 IActionProgress* delegate, Error* error = nullptr);
  static bool executeWithURLs(std::vector<std::string> urls, const std::string& desFolder,
                              IActionProgress* delegate, Error* error = nullptr);

  // True when every item reached the destination; blocks until then.
  bool execute();
  std::optional<Error> error() const;
  // Where each top-level item landed, in the order of the selection.
  std::vector<std::string> copiedPaths() const;
  const std::string& desFolder() const { return _desFolder; }

  const std::string& tempFolder() const override { return _tempFolder; }
  IActionProgress* progressDelegate() const override { return _progressDelegate; }
  const FilePropertyOptions& propertyOptions() const override { return _propertyOptions; }
  bool addOpeartion(std::shared_ptr<Operation> operation, QueuePriority priority) override {
    return FilePropertyBase::addOpeartion(std::move(operation), priority);
  }
  bool createFolder(const std::string& path) override;
  bool createFile(const std::string& path, const std::string& destPath) override;
  bool createSymblink(const std::string& path, const std::string& destPath,
                      const std::string& targetPath) override;
  void copyFailed(Error error) override;

 private:
  bool moveIntoPlace(const std::string& staged, const std::string& name, bool isFolder,
                     std::string& landed);

  std::string _desFolder;
  std::string _tempFolder;
  IActionProgress* _progressDelegate;
  mutable std::mutex lock_;
  std::optional<Error> error_;
  std::vector<std::string> copied_;
};

namespace detail {
// A random (version 4) UUID in its usual text form.
std::string makeUUID();
}  // namespace detail

}  // namespace harbor
