#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace harbor {

// The application's own clipboard of paths, kept in the preferences under
// `TransferFilesPaths` so that it survives a restart.
class TransferClipboard {
 public:
  static constexpr const char* kKey = "TransferFilesPaths";
  // Null paths remove the entry.
  static void saveCopySystemPath(const std::optional<std::vector<std::string>>& paths, bool isCopy);
  // The paths, or nothing when the entry holds no list under "files".
  static std::optional<std::vector<std::string>> getCopySystemPath(bool& isCopy);
};

// The system pasteboard as the browser reads it. The GUI maps it to the
// desktop clipboard; tests and the CLI keep it in memory.
class IPasteboard {
 public:
  virtual ~IPasteboard() = default;
  virtual std::optional<std::string> string() const = 0;
  virtual void clearString() = 0;
  // Image or data items, each as its bytes.
  virtual std::vector<std::string> images() const = 0;
  virtual void clearImages() = 0;

  static std::shared_ptr<IPasteboard> shared();
  static void setShared(std::shared_ptr<IPasteboard> pasteboard);
};

class MemoryPasteboard : public IPasteboard {
 public:
  std::optional<std::string> string() const override { return string_; }
  void clearString() override { string_.reset(); }
  std::vector<std::string> images() const override { return images_; }
  void clearImages() override { images_.clear(); }
  void setString(std::string text) { string_ = std::move(text); }
  void setImages(std::vector<std::string> images) { images_ = std::move(images); }

 private:
  std::optional<std::string> string_;
  std::vector<std::string> images_;
};

// The MIME type of a file: the extension's table first, and where that says
// only "application/octet-stream", the content decides.
class MimeTypes {
 public:
  static std::string getEmailMimeType(const std::string& path);
  // What the content looks like ("text/plain", "image/png"...); empty when
  // it cannot be read.
  static std::string contentMimeType(const std::string& path);
};

}  // namespace harbor
