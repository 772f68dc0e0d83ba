#pragma once

#include <memory>

#include "archive/7z/Archive7zWriter.h"
#include "archive/ZipBase.h"

namespace harbor {

// Writes 7z archives through Archive7zWriter: solid LZMA2, no file times,
// content and names encrypted when a password is set.
class U7zZip : public ZipBase, private Archive7zWriterDelegate {
 public:
  U7zZip(std::string filePath, IActionProgress* delegate, ZipPropertyOptions options);

  bool isOpen() const { return _writer != nullptr; }
  void zip(const std::string& path) override;
  // Writes the archive; on failure error() holds why.
  void finished() override;

  void zipFolder(const std::string& path);
  void zipOnlyFolder(const std::string& path);
  void zipFileToDesFile(const std::string& path);
  // Nothing to do per entry for this format.
  void zipOpenNewFile(const std::string& name, bool neeedClose, int fileType) {
    (void)name;
    (void)neeedClose;
    (void)fileType;
  }

 private:
  void initParameters();
  void onArchive7zWriterWriteProgress(Archive7zWriter& writer, float fraction) override;

  std::unique_ptr<Archive7zWriter> _writer;
  std::uint64_t total_ = 0;
};

}  // namespace harbor
