#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "encoding/StringEncodings.h"

namespace harbor {

// What a text says about its own encoding: an HTML <meta charset> or
// http-equiv Content-Type, an XML declaration, a CSS @charset rule, or an
// Emacs or vim coding cookie in the first two lines. Only the head of the
// text is read, as bytes: every such declaration is written in ASCII.
class CharsetDeclaration {
 public:
  // How far into the text a declaration is looked for.
  static constexpr std::size_t kHeadSize = 8192;

  // The first label, as written ("koi8-r", "latin-1-unix"), that resolve()
  // knows; nothing when the text declares none.
  static std::optional<std::string> find(std::string_view data);

  // Our encoding for a label as texts write it: table names and ICU's
  // aliases, Emacs's names and line-end suffixes. kInvalidStringEncoding for
  // a label nobody here knows.
  static StringEncoding resolve(std::string_view label);

  // The encoding a text declares, resolved, with the rules browsers follow
  // for pages: a page never declares itself into UTF-16 or UTF-32 (its bytes
  // were read as ASCII to find the declaration), and "us-ascii" or
  // "iso-8859-1" pages are windows-1252.
  static std::optional<StringEncoding> declaredEncoding(std::string_view data);
};

}  // namespace harbor
