#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "archive/ProgressStep.h"
#include "platform/Error.h"

namespace harbor {

class IActionProgress;

class IZipBase {
 public:
  virtual ~IZipBase() = default;
  virtual void zip(const std::string& path) = 0;
  virtual void setRelative_const(const std::string& base) = 0;
  virtual void finished() = 0;
};

// What a writer is asked to do besides adding paths.
// How entries are enciphered when a password is set: the traditional
// cipher every unzip reads, or AES-256 (authenticated, version 2).
enum class ZipEncryption { traditional, aes256 };

struct ZipPropertyOptions {
  std::string password;
  ZipEncryption encryption = ZipEncryption::traditional;
  bool isIgnoreHiddenFile = false;
};

// A writer: entries are stored relative to `relative_const`.
class ZipBase : public IZipBase {
 public:
  static constexpr std::uint64_t kProgressStep = 2048000;

  ZipBase(std::string filePath, IActionProgress* delegate, ZipPropertyOptions options);

  void setRelative_const(const std::string& base) override { relative_const_ = base; }
  void finished() override {}
  // Failures that were passed over, one message each.
  const std::vector<std::string>& zipMsg() const { return zipMsg_; }
  const std::optional<Error>& error() const { return error_; }
  std::string getRelativePath(const std::string& path) const;

 protected:
  std::string relative_const_;
  std::vector<std::string> zipMsg_;
  IActionProgress* delegate_;
  ProgressStep progressSize_{kProgressStep};
  ZipPropertyOptions propertyOptions_;
  std::string filePath_;
  std::string password_;
  std::optional<Error> error_;
};

class ArchiveUtils {
 public:
  // `path` relative to `base`, or `path` itself when there is no base.
  static std::string getTempRelative(const std::string& base, const std::string& path);
};

class IArchive;

class ArchiveFactory {
 public:
  // A writer for the target's extension ("zip", "7z"), or null. Adds every source
  // relative to its own parent folder.
  static std::unique_ptr<ZipBase> createZipFactory(const std::vector<std::string>& sources,
                                                   IActionProgress* delegate,
                                                   const std::string& desPath,
                                                   const ZipPropertyOptions& options);
  // A reader for the file's format, or null for a format we don't read. The
  // extension decides unless the content is plainly another format or the
  // extension is unknown, so renamed files and .whl, .apk, .docx open as
  // what they are.
  static std::unique_ptr<IArchive> createReader(const std::string& path,
                                                const std::string& password = "");
};

}  // namespace harbor
