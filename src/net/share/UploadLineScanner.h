#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace harbor {

// Finds the file in a multipart upload from the page's form, which sends a
// "Filename" field first: boundary, its disposition, its value, boundary,
// the file's disposition and "Content-Type: application/octet-stream". The
// part head must arrive whole in one piece; anything else is not an upload.
class UploadLineScanner {
 public:
  // `boundary` as "Content-Type" gives it, without the leading "--".
  explicit UploadLineScanner(std::string boundary);

  struct Start {
    bool found = false;
    bool dropped = false;   // the head ended but names no usable file
    std::string name;       // the raw name from the disposition line
    std::string_view data;  // file bytes in this piece
  };
  // A piece while no file has started.
  Start scanHead(std::string_view piece);
  // A piece once the file has started: the bytes that belong to it.
  std::string_view fileData(std::string_view piece);
  bool fileEnded() const { return fileEnded_; }
  const std::vector<std::string>& multipartData() const { return multipartData_; }

  // "a/b\\c.txt" gives "c.txt"; "", "." and ".." give "untitle"; a NUL
  // gives "" (refused).
  static std::string uploadLeafName(std::string_view name);

 private:
  std::string boundaryData_;  // "--" + boundary
  std::vector<std::string> multipartData_;
  bool postHeaderOK_ = false;
  bool fileEnded_ = false;
};

}  // namespace harbor
