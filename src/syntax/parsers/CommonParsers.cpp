#include "syntax/parsers/CommonParsers.h"

#include <filesystem>

#include "syntax/CodeFactory.h"

namespace harbor {

void CppFormatParser::initPara() {
  // "Untitle.mm" and the like: the extension of the registry type.
  const auto dot = extTag.rfind(u'.');
  tag = dot == std::u16string::npos ? extTag : extTag.substr(dot + 1);
  CodeFormatParser::initPara();
}

std::u16string CppFormatParser::checkTag(const std::u16string& text) {
  if (text.find(u"@interface") != std::u16string::npos ||
      text.find(u"#import") != std::u16string::npos) {
    tag = u"mm";
  }
  return tag;
}

void OtherTextFileFormatParser::parserValueWithTextStorage(TextStorage& storage, std::size_t start,
                                                           std::size_t end) {
  bindStorage(storage, start, end);
}

template <class T>
static void add(const char* name) {
  CodeFactory::registerParserClass(name, [] { return std::make_shared<T>(); });
}

void registerCommonParsers() {
  add<CodeFormatParser>("CodeFormatParser");
  add<CommonFormatParser>("CommonFormatParser");
  add<ShellFormatParser>("ShellFormatParser");
  add<ScalaFormatParser>("ScalaFormatParser");
  add<ProtoFormatParser>("ProtoFormatParser");
  add<GroovyFormaterParser>("GroovyFormaterParser");
  add<PascalFormatParser>("PascalFormatParser");
  add<HaskellFormatParser>("HaskellFormatParser");
  add<TclFormatParser>("TclFormatParser");
  add<AsmFormatParser>("AsmFormatParser");
  add<CFormatParser>("CFormatParser");
  add<ObjcFormatParser>("ObjcFormatParser");
  add<CsFormatParser>("CsFormatParser");
  add<CssFormatParser>("CssFormatParser");
  add<JavaFormatParser>("JavaFormatParser");
  add<SqlFormatParser>("SqlFormatParser");
  add<VbNetFormatParser>("VbNetFormatParser");
  add<VbsFormatParser>("VbsFormatParser");
  add<ErlangFormatParser>("ErlangFormatParser");
  add<AspFormatParser>("AspFormatParser");
  add<JspFormatParser>("JspFormatParser");
  add<CppFormatParser>("CppFormatParser");
  add<OtherTextFileFormatParser>("OtherTextFileFormatParser");
}

}  // namespace harbor
