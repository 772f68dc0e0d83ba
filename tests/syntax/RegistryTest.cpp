#include <gtest/gtest.h>

#include <filesystem>

#include "prefs/EditorUserDefaults.h"
#include "prefs/EditorUtils.h"
#include "support/TestSupport.h"
#include "syntax/CodeFactory.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;

class Registry : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    CodeFactory::removeAllCodeFormatContainer();
    CodeFactory::loadCustomExtensionsSyntax();
    CodeFactory::loadCustomOnlyForFileSyntax();
  }
  void TearDown() override {
    EditorUserDefaults::removeEditorSyntaxWithFileName("mine.stx");
    CodeFactory::loadCustomExtensionsSyntax();
    CodeFactory::loadCustomOnlyForFileSyntax();
    TempHome::TearDown();
  }
  std::shared_ptr<CodeFormatParser> forFile(const std::string& name, const std::string& in = {}) {
    const std::string ext = fs::path(name).extension().string();
    return CodeFactory::codeFormatParserWithExtension(ext.empty() ? "" : ext.substr(1), in,
                                                      (scratch.path() / name).string());
  }
  test::ScratchDir scratch;
};

TEST_F(Registry, FileNamesInAnyCase) {
  for (const char* name : {"Makefile", "MAKEFILE", "makefile"}) {
    auto p = forFile(name);
    ASSERT_TRUE(p->codeConfigItem.has_value()) << name;
    EXPECT_EQ(p->codeConfigItem->stxFilePath, "makefile.stx");
    EXPECT_EQ(p->codeConfigItem->configType, CodeConfigItem::BuiltinFileName);
  }
  auto nginx = forFile("nginx.conf");
  auto other = forFile("other.conf");
  EXPECT_EQ(nginx->codeConfigItem->stxFilePath, "nginx.conf.stx");
  EXPECT_EQ(other->codeConfigItem->stxFilePath, "yml.stx");
  EXPECT_EQ(nginx->codeConfigItem->cls, other->codeConfigItem->cls);
}

TEST_F(Registry, SizeCutOff) {
  test::writeFile(scratch / "at.html", std::string(524288, 'x'));
  test::writeFile(scratch / "over.html", std::string(524289, 'x'));
  auto at = forFile("at.html");
  ASSERT_TRUE(at->codeConfigItem.has_value());
  EXPECT_EQ(at->codeConfigItem->cls, "HtmlFormatParser");
  auto over = forFile("over.html");
  EXPECT_EQ(over->className(), "OtherTextFileFormatParser");
  EXPECT_EQ(over->formatType, u"txt");
  EXPECT_FALSE(over->codeConfigItem.has_value());
}

TEST_F(Registry, ErbAndUnknownExtensions) {
  auto erb = forFile("page.erb");
  ASSERT_TRUE(erb->codeConfigItem.has_value());
  EXPECT_EQ(erb->codeConfigItem->cls, "HtmlFormatParser");
  EXPECT_EQ(erb->formatInContainsType, u"rb");
  EXPECT_EQ(erb->formatType, u"html");
  EXPECT_EQ(forFile("page.erb", "JS")->formatType, u"js");

  auto unknown = forFile("x.unknown");
  EXPECT_EQ(unknown->className(), "OtherTextFileFormatParser");
  EXPECT_EQ(unknown->formatType, u"txt");
}

TEST_F(Registry, ParsedDefinitionsAreSharedUntilTheCacheClears) {
  auto a = forFile("a.html");
  auto b = forFile("b.htm");
  EXPECT_EQ(a->stxParser, b->stxParser);
  EXPECT_EQ(CodeFactory::codeFormatContainer().count("Default-html5.stx"), 1u);
  CodeFactory::singleInstance().enterBackgroundEvent();
  auto c = forFile("c.html");
  EXPECT_NE(a->stxParser, c->stxParser);

  // Rows without a syntax file have no key: a new, empty definition each time.
  auto x = forFile("h.ashx");
  auto y = forFile("h.ashx");
  EXPECT_NE(x->stxParser, y->stxParser);
  EXPECT_TRUE(x->stxParser->keywordItems.empty());
  EXPECT_FALSE(CodeFactory::getStxParserFlag(x->codeConfigItem).has_value());
}

TEST_F(Registry, UserAssignmentsAndTheirPrecedence) {
  test::writeFile(EditorUtils::fullNameForSyntaxExtension("mine.stx"),
                  "#LINECOMMENT=;;\n#KEYWORD=Keywords\nmine\n");
  Error error;
  ASSERT_TRUE(EditorUserDefaults::saveEditorSyntaxSettings("html,makefile", "mine.stx", &error));
  CodeFactory::loadCustomExtensionsSyntax();

  auto page = forFile("index.html");
  EXPECT_EQ(page->className(), "CommonFormatParser") << "tag scanning is lost";
  EXPECT_EQ(page->codeConfigItem->configType, CodeConfigItem::UserExtension);
  EXPECT_EQ(page->stxParser->lineComment, u";;");
  EXPECT_EQ(CodeFactory::getStxParserFlag(page->codeConfigItem), "Extension-mine.stx");
  // A built-in file name beats the user's extension.
  EXPECT_EQ(forFile("makefile")->codeConfigItem->stxFilePath, "makefile.stx");

  // A user's file name beats everything.
  ASSERT_TRUE(EditorUserDefaults::saveEditorOnlyFileSyntaxSettings("makefile", "mine.stx", &error));
  test::writeFile(EditorUtils::fullNameForSyntaxOnlyFile("mine.stx"), "#KEYWORD=k\nx\n");
  CodeFactory::loadCustomOnlyForFileSyntax();
  EXPECT_EQ(forFile("Makefile")->codeConfigItem->configType, CodeConfigItem::UserFileName);
  EditorUserDefaults::removeEditorSyntaxOnlyFileWithFileName("mine.stx");
}

TEST_F(Registry, TextExtensions) {
  EXPECT_EQ(CodeFactory::allSupportTextExtensions().size(), 89u);
  EXPECT_EQ(CodeFactory::createTextFileFormat().size(), 28u);
  EXPECT_TRUE(CodeFactory::isSupportTextFormat("lua"));
  EXPECT_TRUE(CodeFactory::isSupportTextFormat("vbs")) << "a row of the parser table";
  EXPECT_FALSE(CodeFactory::isSupportTextFormat("HTML")) << "keys are not lowercased";
  EXPECT_FALSE(CodeFactory::isSupportTextFormat("png"));
}

}  // namespace
}  // namespace harbor
