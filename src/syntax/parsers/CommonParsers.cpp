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

void registerCommonParsers() {
  CodeFactory::registerParser<CodeFormatParser>("CodeFormatParser");
  CodeFactory::registerParser<CommonFormatParser>("CommonFormatParser");
  CodeFactory::registerParser<ShellFormatParser>("ShellFormatParser");
  CodeFactory::registerParser<ScalaFormatParser>("ScalaFormatParser");
  CodeFactory::registerParser<ProtoFormatParser>("ProtoFormatParser");
  CodeFactory::registerParser<GroovyFormaterParser>("GroovyFormaterParser");
  CodeFactory::registerParser<PascalFormatParser>("PascalFormatParser");
  CodeFactory::registerParser<HaskellFormatParser>("HaskellFormatParser");
  CodeFactory::registerParser<TclFormatParser>("TclFormatParser");
  CodeFactory::registerParser<AsmFormatParser>("AsmFormatParser");
  CodeFactory::registerParser<CFormatParser>("CFormatParser");
  CodeFactory::registerParser<ObjcFormatParser>("ObjcFormatParser");
  CodeFactory::registerParser<CsFormatParser>("CsFormatParser");
  CodeFactory::registerParser<CssFormatParser>("CssFormatParser");
  CodeFactory::registerParser<JavaFormatParser>("JavaFormatParser");
  CodeFactory::registerParser<SqlFormatParser>("SqlFormatParser");
  CodeFactory::registerParser<VbNetFormatParser>("VbNetFormatParser");
  CodeFactory::registerParser<VbsFormatParser>("VbsFormatParser");
  CodeFactory::registerParser<ErlangFormatParser>("ErlangFormatParser");
  CodeFactory::registerParser<AspFormatParser>("AspFormatParser");
  CodeFactory::registerParser<JspFormatParser>("JspFormatParser");
  CodeFactory::registerParser<CppFormatParser>("CppFormatParser");
  CodeFactory::registerParser<OtherTextFileFormatParser>("OtherTextFileFormatParser");
}

}  // namespace harbor
