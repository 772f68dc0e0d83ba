#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "syntax/CodeFormatParser.h"

namespace harbor {

// Tag reading shared by the page parsers and by the handler files that only
// read a leading <%@ ... %> directive. Names follow the base rule here
// (letters, digits, '_' and '-'); the page family reads any run of
// non-delimiters instead.
class MarkupScanner : public CodeFormatParser {
 public:
  using Condition = std::function<bool()>;

  std::string className() const override { return "MarkupScanner"; }

  virtual TextRange scanElementName();
  // A tag from the '<' at the index: its name (type 9) with its attributes
  // as children. An unfinished tag is still returned.
  std::shared_ptr<CodeElement> scanHtmlElementWithCondition(const Condition& cond);
  std::shared_ptr<CodeElement> scanElementAttributes(const Condition& cond);
  std::vector<std::shared_ptr<CodeElement>> scanElementAttributesItems(const Condition& cond);
  TextRange scanElementNameWithSpaceAndGreatAndEqual();
  TextRange scanElementNameWithSpaceAndGreat();
  TextRange scanElementNameWithSpaceAndGreatAndSlash();
  // The next closing tag `name` (any case): appended as type 10, its whole
  // range returned. Not found: back to the start if `returnStartIndex`,
  // else left at the end of the pass.
  TextRange scanEndNode(std::u16string_view name, bool returnStartIndex);
  // <name ...>inner</name> at the index: the whole range, `inner` set.
  TextRange scanElementBeginEnd(std::u16string_view name, TextRange& inner);
  // A directive inside a server block read as a tag: <%@ Page Language="C#" %>.
  std::shared_ptr<CodeElement> scanIncludeElement(std::u16string_view scriptBegin,
                                                  std::u16string_view scriptEnd, TextRange range);
  // A <% %> block at the start of the pass read as a directive. Gives the
  // language it names: 1 C#, 2 VB, 0 none.
  int scanPageDirective();

  std::u16string elementName(const CodeElement& e) const;
  std::u16string attributeValue(const CodeElement& e, std::u16string_view name) const;

 protected:
  // Runs the scan up to `limit` only, restoring the end afterwards.
  struct LimitGuard {
    LimitGuard(CodeFormatParser& p, std::size_t limit) : parser(p), saved(p.lastIndex) {
      if (limit < p.lastIndex) p.lastIndex = limit;
    }
    ~LimitGuard() { parser.lastIndex = saved; }
    LimitGuard(const LimitGuard&) = delete;
    LimitGuard& operator=(const LimitGuard&) = delete;
    CodeFormatParser& parser;
    std::size_t saved;
  };
  Condition canContinue() {
    return [this] { return isCanContinue(); };
  }
  // The language an ASP.NET page directive names.
  enum PageLanguage : std::int32_t {
    kPageLanguageNone = 0,
    kPageLanguageCSharp = 1,
    kPageLanguageVB = 2,
  };
  static const char* regionLanguage(int lanuageType);
};

// HTML pages: the scan jumps from '<' to '<', reads tags into elements and
// hands <script>, <style> and server blocks to parsers of their languages.
class HtmlFormatParser : public MarkupScanner {
 public:
  std::string className() const override { return "HtmlFormatParser"; }
  std::string defaultStxName() const override { return "html5.stx"; }
  long defaultAccessoryType() const override { return 1; }
  bool isSupportPreview() const override { return true; }
  virtual bool isCheckIncludFile() const { return false; }

  void parserDetail() override;
  TextRange scanElementName() override;
  bool skipEndNode();
  bool skipNotHtmlNode();
  void skipTextNoRetrun();
  TextRange skipText();
  std::shared_ptr<CodeElement> scanHtmlElement(bool flag);
  std::shared_ptr<CodeElement> scanHtmlElement() { return scanHtmlElement(true); }
  bool isScriptLoadSource(const CodeElement& e) const;
  bool isJavascript(const CodeElement& e) const;
  // <!--#include file="..."--> read as a tag when `block` accepts the
  // character after the comment opener.
  virtual bool checkIncludFile(TextRange range, const std::function<bool(char16_t)>& block);

  // Reading view: the text with tags, comments and embedded regions removed.
  std::u16string getHtmlText();
  std::vector<std::shared_ptr<CodeElement>> sortedAllElementsRange() const;
  std::u16string replaceAllElementsWithEmpty(
      const std::vector<std::shared_ptr<CodeElement>>& items) const;
  std::shared_ptr<CodeElement> findFirstElementByName(std::u16string_view name) const;
  std::u16string scanElementNameWithRange(TextRange range);

  // Suggestions.
  std::map<std::u16string, std::map<std::u16string, std::vector<std::u16string>>>
  elementWithAttributeValue() const override;
  bool isCurrentOffsetNoSuggest(std::size_t offset) const override;
  bool isCanLoadSuggestItems(const std::u16string& lastInputString, TextRange selRange,
                             SuggestField& stxFieldobj) override;
  std::vector<std::u16string> searchText(std::u16string_view term, bool tail,
                                         const SuggestField* attri, long stxFieldType) override;
  void searchFiles(const std::filesystem::path& folder, std::vector<std::filesystem::path>& item,
                   std::u16string_view keywords) const;
  void loadSuggestItems(ISuggestDelegate& delegate) override;
  std::vector<std::u16string> greaterCharNoAction() const override;
  std::vector<std::u16string> greaterCharNoContent() const override;
  long selectedKeywordsItemFocusDiff(const std::u16string& item) const override;
  std::shared_ptr<CodeElement> getElementItemNeedEnd(std::size_t index,
                                                     const CodeElement* element) override;
  // The first item starting at or after `offset`, else the last; none if empty.
  static std::optional<std::size_t> getRangeDistanceNearItems(
      std::size_t offset, const std::vector<std::shared_ptr<CodeElement>>& items);

 private:
  void greaterCharTyped(ISuggestDelegate& delegate, std::size_t caret);
  void slashCharTyped(ISuggestDelegate& delegate, std::size_t caret);
  void lineFeedTyped(ISuggestDelegate& delegate, std::size_t caret);
  bool isSelfClosed(const CodeElement& e) const;
};

class XmlFormatParser : public HtmlFormatParser {
 public:
  std::string className() const override { return "XmlFormatParser"; }
  std::string defaultStxName() const override { return "xml.stx"; }
  long defaultAccessoryType() const override { return 31; }
  bool isSupportPreview() const override { return false; }
  std::map<std::u16string, std::map<std::u16string, std::vector<std::u16string>>>
  elementWithAttributeValue() const override {
    return {};
  }
  // Every XML element may have content: '>' always closes with a tag.
  std::vector<std::u16string> greaterCharNoContent() const override { return {}; }
};

class XslFormatParser : public XmlFormatParser {
 public:
  std::string className() const override { return "XslFormatParser"; }
  std::string defaultStxName() const override { return "xsl.stx"; }
  long defaultAccessoryType() const override { return 32; }
};

class ShtmlFormatParser : public HtmlFormatParser {
 public:
  std::string className() const override { return "ShtmlFormatParser"; }
  std::string defaultStxName() const override { return "shtml.stx"; }
  long defaultAccessoryType() const override { return 2; }
  bool isCheckIncludFile() const override { return true; }
};

class HtcFormatParser : public HtmlFormatParser {
 public:
  std::string className() const override { return "HtcFormatParser"; }
};

class AspHtmlFormatParser : public HtmlFormatParser {
 public:
  std::string className() const override { return "AspHtmlFormatParser"; }
  long defaultAccessoryType() const override { return 4; }
  bool isSupportPreview() const override { return false; }
  bool isCheckIncludFile() const override { return true; }
  bool scanOtherPattern() override { return scanServerTag("aspcore", u"<%", u"%>"); }
};

class AspxHtmlFormatParser : public HtmlFormatParser {
 public:
  std::string className() const override { return "AspxHtmlFormatParser"; }
  long defaultAccessoryType() const override { return 24; }
  bool isSupportPreview() const override { return false; }
  bool isCheckIncludFile() const override { return true; }
  void parserStart() override;
  bool scanOtherPattern() override;

  std::int32_t lanuageType = kPageLanguageNone;
};

class JspHtmlFormatParser : public HtmlFormatParser {
 public:
  std::string className() const override { return "JspHtmlFormatParser"; }
  bool isSupportPreview() const override { return false; }
  void initPara() override;
  bool scanOtherPattern() override { return scanServerTag("jspcore", u"<%", u"%>"); }
  bool scanOtherStartPattern() override;
};

class PhpHtmlFormatParser : public HtmlFormatParser {
 public:
  std::string className() const override { return "PhpHtmlFormatParser"; }
  long defaultAccessoryType() const override { return 6; }
  bool isSupportPreview() const override { return false; }
  bool scanOtherPattern() override;
};

// Generic handlers (.ashx): a directive naming the language, then code.
class AshxFormatParser : public MarkupScanner {
 public:
  std::string className() const override { return "AshxFormatParser"; }
  void parserStart() override;

  std::int32_t lanuageType = kPageLanguageNone;
};

// Application files (.asax): a directive, then one server <script> block.
class AsaxFormatParser : public MarkupScanner {
 public:
  std::string className() const override { return "AsaxFormatParser"; }
  void parserStart() override;
  void parserDetail() override {}

  std::int32_t lanuageType = kPageLanguageNone;
};

}  // namespace harbor
