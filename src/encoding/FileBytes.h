#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Error.h"

namespace harbor {

inline constexpr const char* kEncodingErrorDomain = "EncodingErrorDomain";

// The bytes of a whole file without copying them: a read-only mapping, or a
// read into memory for what cannot be mapped (pipes, /proc files). Move-only.
class FileBytes {
 public:
  // Nothing, with `error` filled when given, for a file that cannot be read.
  static std::optional<FileBytes> read(const std::string& path, Error* error = nullptr);
  // At most the first `limit` bytes, read with stdio.
  static std::optional<std::string> readHead(const std::string& path, std::size_t limit,
                                             Error* error = nullptr);

  FileBytes(FileBytes&& other) noexcept;
  FileBytes& operator=(FileBytes&& other) noexcept;
  FileBytes(const FileBytes&) = delete;
  FileBytes& operator=(const FileBytes&) = delete;
  ~FileBytes();

  std::string_view view() const { return mapped_ ? std::string_view(mapped_, size_) : owned_; }

 private:
  FileBytes() = default;
  void release();

  const char* mapped_ = nullptr;
  std::size_t size_ = 0;
  std::string owned_;
};

// "Cannot read "<path>": <reason>", from the strings table.
Error cannotReadError(const std::string& path, const std::string& reason);

}  // namespace harbor
