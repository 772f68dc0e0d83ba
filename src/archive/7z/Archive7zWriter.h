#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "archive/7z/Archive7zReader.h"
#include "platform/Error.h"

namespace harbor {

// Writes a 7z archive: every added path's data in one solid LZMA2 folder,
// AES-256 over content and header when a password is set, the header
// LZMA-compressed. The file appears under its name only when complete.
class Archive7zWriter {
 public:
  explicit Archive7zWriter(std::string path);

  void setDelegate(Archive7zWriterDelegate* delegate) { delegate_ = delegate; }
  void setPasswordGetter(std::function<std::string()> getter) {
    passwordGetter_ = std::move(getter);
  }
  // Method 1 is LZMA2, the only one written.
  void setMethod(int method) { method_ = method; }
  void setSolid(bool value) { solid_ = value; }
  void setCompressionLevel(int level) { level_ = level; }
  void setEncodeContent(bool value) { encodeContent_ = value; }
  void setEncodeHeader(bool value) { encodeHeader_ = value; }
  void setCompressHeader(bool value) { compressHeader_ = value; }
  void setCompressHeaderFull(bool value) { compressHeaderFull_ = value; }
  void setWriteModificationTime(bool value) { writeModificationTime_ = value; }
  void setWriteCreationTime(bool value) { writeCreationTime_ = value; }
  void setWriteAccessTime(bool value) { writeAccessTime_ = value; }

  // Checks that the archive can be made where asked.
  bool open(std::optional<Error>* error);
  // Adds the file, link or folder at `path` under the name `forPath`.
  bool addPath(const std::string& path, const std::string& forPath);
  // Writes everything added; false with lastError on failure, leaving nothing.
  bool write();
  const std::optional<Error>& lastError() const { return lastError_; }

 private:
  struct Pending {
    std::string source;
    std::string name;
  };
  bool fail(long code, const std::string& message);

  std::string path_;
  Archive7zWriterDelegate* delegate_ = nullptr;
  std::function<std::string()> passwordGetter_;
  int method_ = 1;
  bool solid_ = true;
  int level_ = 9;
  bool encodeContent_ = false;
  bool encodeHeader_ = false;
  bool compressHeader_ = true;
  bool compressHeaderFull_ = true;
  bool writeModificationTime_ = false;
  bool writeCreationTime_ = false;
  bool writeAccessTime_ = false;
  bool opened_ = false;
  std::vector<Pending> pending_;
  std::optional<Error> lastError_;
};

}  // namespace harbor
