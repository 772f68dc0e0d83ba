#pragma once

#include "syntax/CodeFormatParser.h"

namespace harbor {

// Languages that are the base scanner with a syntax file of their own.
#define HARBOR_SIMPLE_PARSER(Name, Stx, Accessory)                   \
  class Name : public CodeFormatParser {                             \
   public:                                                           \
    std::string className() const override { return #Name; }         \
    std::string defaultStxName() const override { return Stx; }      \
    long defaultAccessoryType() const override { return Accessory; } \
  };

// These take their syntax file from their registry row only.
class CommonFormatParser : public CodeFormatParser {
 public:
  std::string className() const override { return "CommonFormatParser"; }
};
#define HARBOR_ROW_PARSER(Name)                              \
  class Name : public CommonFormatParser {                   \
   public:                                                   \
    std::string className() const override { return #Name; } \
  };
HARBOR_ROW_PARSER(ShellFormatParser)
HARBOR_ROW_PARSER(ScalaFormatParser)
HARBOR_ROW_PARSER(ProtoFormatParser)
HARBOR_ROW_PARSER(GroovyFormaterParser)
HARBOR_ROW_PARSER(PascalFormatParser)
HARBOR_ROW_PARSER(HaskellFormatParser)
HARBOR_ROW_PARSER(TclFormatParser)
#undef HARBOR_ROW_PARSER

HARBOR_SIMPLE_PARSER(AsmFormatParser, "masm.stx", 15)
HARBOR_SIMPLE_PARSER(CFormatParser, "c.stx", 16)
HARBOR_SIMPLE_PARSER(ObjcFormatParser, "objc.stx", 20)
HARBOR_SIMPLE_PARSER(CsFormatParser, "cs.stx", 22)
HARBOR_SIMPLE_PARSER(CssFormatParser, "css3.stx", 10)
HARBOR_SIMPLE_PARSER(JavaFormatParser, "java.stx", 12)
HARBOR_SIMPLE_PARSER(SqlFormatParser, "sql.stx", 21)
HARBOR_SIMPLE_PARSER(VbNetFormatParser, "vbnet.stx", 25)
HARBOR_SIMPLE_PARSER(VbsFormatParser, "vbscript.stx", 11)
HARBOR_SIMPLE_PARSER(ErlangFormatParser, "erlang.stx", 30)
HARBOR_SIMPLE_PARSER(AspFormatParser, "asp.stx", 3)
HARBOR_SIMPLE_PARSER(JspFormatParser, "jsp.stx", 13)
#undef HARBOR_SIMPLE_PARSER

// C and C++, and which of the two (or Objective-C) a new file really is.
class CppFormatParser : public CodeFormatParser {
 public:
  std::string className() const override { return "CppFormatParser"; }
  std::string defaultStxName() const override { return "cpp.stx"; }
  long defaultAccessoryType() const override { return 17; }
  void initPara() override;
  std::u16string checkTag(const std::u16string& text) override;
};

// Files without highlighting: the pass records where it is and scans nothing.
class OtherTextFileFormatParser : public CodeFormatParser {
 public:
  std::string className() const override { return "OtherTextFileFormatParser"; }
  long defaultAccessoryType() const override { return 33; }
  bool isSupportPreview() const override { return false; }
  void parserValueWithTextStorage(TextStorage& storage, std::size_t currentIndex,
                                  std::size_t lastIndex) override;
  void loadSuggestItems(ISuggestDelegate&) override {}
};

}  // namespace harbor
