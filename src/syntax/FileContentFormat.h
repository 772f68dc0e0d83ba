#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace harbor {

// The language a file names in its own lines, for files whose name tells the
// registry nothing (scripts without an extension): a "#!" interpreter line,
// an Emacs "-*- mode: ... -*-" line, or a vim modeline with ft=.
struct FileContentFormat {
  // A key of the registry: an extension ("py", "sh"), or with `fileName` a
  // built-in file name ("makefile").
  std::string key;
  bool fileName = false;
  // Which line decided: "interpreter", "emacs-mode" or "vim-modeline".
  std::string rule;

  // `head` is the start of the text, `tail` its end (the same text for a
  // short file). Only ASCII matters, so the bytes are read as they are.
  static std::optional<FileContentFormat> fromText(std::string_view head, std::string_view tail);
  // Reads the start and the end of the file; nothing when it cannot be read.
  static std::optional<FileContentFormat> fromFile(const std::string& path);
};

}  // namespace harbor
