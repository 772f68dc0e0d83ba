#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "syntax/CodeFormatParser.h"

namespace harbor {

// JavaScript: the base scanner plus regular expression literals.
class JSFormatParser : public CodeFormatParser {
 public:
  std::string className() const override { return "JSFormatParser"; }
  std::string defaultStxName() const override { return "js.stx"; }
  std::string defaultCtlFile() const override { return "js.acp.ctl"; }
  long defaultAccessoryType() const override { return 8; }
  bool scanOtherPattern() override;
  void setOtherAttributesToTextStorage(const TextAttributes& defaults,
                                       RangeAttributes& rangeToAttributes) override;
};

// JSON: JavaScript's description without its keywords, so that words in
// data aren't coloured as code.
class JsonFormatParser : public CodeFormatParser {
 public:
  std::string className() const override { return "JsonFormatParser"; }
  std::string defaultStxName() const override { return "js.stx"; }
  std::string defaultCtlFile() const override { return "js.acp.ctl"; }
  long defaultAccessoryType() const override { return 9; }
  void loadStxParser(const std::optional<std::filesystem::path>& stxFile) override;
  void initPara() override;
};

// Perl: `__END__`, regular expressions, here-documents and POD blocks.
class PerlFormatParser : public CodeFormatParser {
 public:
  std::string className() const override { return "PerlFormatParser"; }
  std::string defaultStxName() const override { return "perl.stx"; }
  long defaultAccessoryType() const override { return 26; }
  bool scanOtherPattern() override;

  bool parserEndSymbol();
  bool parserRegex();
  bool parseHereDoc();
  bool parseEqualSymbol();
  bool parseComment();
  bool parserDeclare();
};

// Python: a block string assigned to a name is a string, not a comment.
class PythonFormatParser : public CodeFormatParser {
 public:
  std::string className() const override { return "PythonFormatParser"; }
  std::string defaultStxName() const override { return "python3.stx"; }
  long defaultAccessoryType() const override { return 27; }
  void addRangeToMultiline1Items(TextRange r) override;
  void addRangeToMultiline2Items(TextRange r) override;
};

// Ruby: regular expressions (`/x/`, `%r{x}`) and here-documents.
class RubyFormatParser : public CodeFormatParser {
 public:
  std::string className() const override { return "RubyFormatParser"; }
  std::string defaultStxName() const override { return "ruby.stx"; }
  long defaultAccessoryType() const override { return 28; }
  bool scanOtherPattern() override;

  bool parserRegex();
  bool parseHereDoc();
  // Ruby inside a template page (erb): `<% %>` regions and `%` lines.
  static bool scanTemplatePattern(CodeFormatParser& host);
};

// PHP code between `<?php` and `?>`; the page around it is the host's.
class PhpFormatParser : public CodeFormatParser {
 public:
  std::string className() const override { return "PhpFormatParser"; }
  std::string defaultStxName() const override { return "php.stx"; }
  long defaultAccessoryType() const override { return 5; }
  void initPara() override;
  bool scanOtherPattern() override;
};

// Key-value files (yml, ini, properties): the first word of a line is the
// key; after a split character the rest of the line is its value.
class KeyValueFormatPaser : public CodeFormatParser {
 public:
  std::string className() const override { return "KeyValueFormatPaser"; }
  void initPara() override;
  std::optional<std::u16string_view> scanKeyword() override;
  virtual std::u16string keySplitString() const { return u":="; }
  void scanCheckSplitChar();

  std::u16string keySplitCharacterSet;
};

// Configuration files where a key and its value are set apart by blanks.
class KeyValueCfgParser : public KeyValueFormatPaser {
 public:
  std::string className() const override { return "KeyValueCfgParser"; }
  std::u16string keySplitString() const override { return u":  = "; }
};

}  // namespace harbor
