// The pass after an edit re-scans only near the edit; whatever it does, the
// lists and the colours must be those a pass over the whole text gives.
#include <gtest/gtest.h>

#include <random>

#include "support/TestSupport.h"
#include "syntax/CodeFactory.h"
#include "syntax/CodeFormatParser.h"

namespace harbor {
namespace {

struct Lists {
  std::vector<std::vector<CodeRangeItem>> all;
  bool operator==(const Lists&) const = default;
};

Lists listsOf(const CodeFormatParser& p) {
  Lists l;
  l.all = {p.attributesItems,   p.otherPatternItems,      p.lineComment1Items,
           p.lineComment2Items, p.multilineComment1Items, p.multilineComment2Items,
           p.quotetion1Items,   p.quotetion2Items};
  for (const auto& bucket : p.keywordsItems) l.all.push_back(bucket);
  return l;
}

// What the reader sees: the colour of each unit, plain text as black.
std::vector<Color> coloursOf(const TextStorage& s) {
  std::vector<Color> out(s.length(), CodeFormatParser::editorDefaultColor());
  s.enumerateForegroundColor(TextRange{0, s.length()}, false,
                             [&](const std::optional<Color>& c, TextRange r, bool&) {
                               for (std::size_t i = r.location; i < r.end(); ++i)
                                 out[i] = c.value_or(CodeFormatParser::editorDefaultColor());
                             });
  return out;
}

// The first list where two passes part, for the failure message.
std::string difference(const Lists& a, const Lists& b) {
  for (std::size_t l = 0; l < std::min(a.all.size(), b.all.size()); ++l) {
    for (std::size_t i = 0; i < std::max(a.all[l].size(), b.all[l].size()); ++i) {
      const auto item = [&](const std::vector<CodeRangeItem>& v) {
        return i < v.size() ? toString(v[i].range) : std::string("none");
      };
      if (item(a.all[l]) != item(b.all[l])) {
        return "list " + std::to_string(l) + " item " + std::to_string(i) + ": " + item(a.all[l]) +
               " vs " + item(b.all[l]);
      }
    }
  }
  return "list count";
}

std::string describe(const std::u16string& text) {
  std::string out;
  for (char16_t c : text) out += c < 128 ? static_cast<char>(c) : '?';
  return out;
}

class IncrementalPass : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    CodeFactory::loadCustomExtensionsSyntax();
    CodeFactory::loadCustomOnlyForFileSyntax();
    CodeFactory::removeAllCodeFormatContainer();
  }

  // Edits `text` at random with fragments that open and close the
  // constructs of most languages, checking every pass against a fresh one.
  void fuzz(const std::string& ext, std::u16string text, int edits, unsigned seed,
            bool mostlyPartial = true) {
    static const std::vector<std::u16string> fragments = {
        u"/*",        u"*/",     u"//",      u"\"",    u"'",        u"\n",
        u" ",         u"int ",   u"return ", u"#",     u"\\",       u"x",
        u"{",         u"}",      u"(",       u")",     u"/",        u"`",
        u"'''",       u"\"\"\"", u"<<EOF\n", u"EOF\n", u"=begin\n", u"=end\n",
        u"__END__\n", u"%r{a}",  u"=~ /a/ ", u"\n\n",  u"class ",   u"key: value\n",
        u"-- ",       u"<!--",   u"-->",     u"\t",    u"if (",     u"#include <a>\n"};
    std::mt19937 rng(seed);
    auto parser = CodeFactory::codeFormatParserWithExtension(ext);
    ASSERT_TRUE(parser);
    TextStorage storage(text);
    storage.addEditObserver(
        [&](TextRange edited, std::ptrdiff_t change) { parser->noteEdit(edited, change); });
    parser->parserSmart(storage);
    std::size_t partial = 0;
    for (int i = 0; i < edits; ++i) {
      const std::u16string before = storage.string();
      const std::size_t at = rng() % (storage.length() + 1);
      const int kind = static_cast<int>(rng() % 4);
      if (kind == 0 && storage.length() > 0) {
        const std::size_t length = std::min<std::size_t>(rng() % 12, storage.length() - at);
        storage.replaceCharacters(TextRange{at, length}, u"");
      } else {
        const std::u16string& f = fragments[rng() % fragments.size()];
        const std::size_t length =
            kind == 1 ? std::min<std::size_t>(rng() % 4, storage.length() - at) : 0;
        storage.replaceCharacters(TextRange{at, length}, f);
        // Now and then two edits before one pass, as a paste and its fix-up.
        if (kind == 2) {
          const std::size_t second = rng() % (storage.length() + 1);
          storage.replaceCharacters(TextRange{second, 0}, fragments[rng() % fragments.size()]);
        }
      }
      parser->parserSmart(storage);
      if (parser->lastScannedRange().length < storage.length()) ++partial;

      auto fresh = CodeFactory::codeFormatParserWithExtension(ext);
      TextStorage whole(storage.string());
      fresh->parserSmart(whole);
      ASSERT_TRUE(listsOf(*parser) == listsOf(*fresh))
          << ext << " edit " << i << " " << difference(listsOf(*parser), listsOf(*fresh))
          << "\nbefore:\n"
          << describe(before) << "\nafter:\n"
          << describe(storage.string());
      ASSERT_EQ(coloursOf(storage), coloursOf(whole)) << ext << " edit " << i << " text:\n"
                                                      << describe(storage.string());
    }
    // The point of it all: most passes were partial.
    if (mostlyPartial) {
      EXPECT_GT(partial, static_cast<std::size_t>(edits) / 2) << ext;
    }
  }
};

const char16_t* kCpp =
    u"// Totals of a column.\n#include <vector>\n\nclass Column {\n public:\n"
    u"  int add(int v) {\n    if (v < 0) return total_;  /* never\n negative */\n"
    u"    const char* s = \"a \\\" b\";\n    char c = '\\'';\n    total_ += v * 0x1f;\n"
    u"    return total_;\n  }\n\n private:\n  int total_ = 0;\n};\n\n"
    u"int main() {\n  Column c;\n  return c.add(3);\n}\n";

TEST_F(IncrementalPass, CppMatchesWholePassAfterRandomEdits) {
  std::u16string text;
  for (int i = 0; i < 6; ++i) text += kCpp;
  fuzz("cpp", text, 400, 1);
}

TEST_F(IncrementalPass, ScriptLanguagesMatchWholePassAfterRandomEdits) {
  const std::u16string js =
      u"// js\nvar a = /x\\/y/g;\nb = a / b / c;\nf(/p/, q ? /r/ : 1);\n"
      u"const s = `tmpl ${a}\nline`;\n/* block\n */\nfunction f(x) { return 'q'; }\n";
  const std::u16string py =
      u"# py\ndef f(x):\n    '''doc\n    string'''\n    s = \"\"\"block\nstr\"\"\"\n"
      u"    return 'a' + \"b\"  # note\n\nclass A:\n    pass\n";
  const std::u16string rb =
      u"# rb\ndef f(x)\n  s = <<EOF\nhere doc\nEOF\n  x =~ /ab+/\n  %r{c}\nend\n"
      u"=begin\nblock comment\n=end\nputs \"done\"\n";
  const std::u16string pl =
      u"# pl\nmy $x = 'a';\nif ($x =~ /a+/) { print \"y\\n\"; }\nprint <<EOF;\nhere\nEOF\n"
      u"=pod\n\ndocs\n\n=cut\nsub f { return 1; }\n__END__\ntrailing text\n";
  std::u16string jsText, pyText, rbText, plText;
  for (int i = 0; i < 4; ++i) {
    jsText += js;
    pyText += py;
    rbText += rb;
    plText += pl;
  }
  fuzz("js", jsText, 250, 2);
  fuzz("py", pyText, 250, 3);
  fuzz("rb", rbText, 250, 4);
  fuzz("pl", plText, 250, 5);
}

TEST_F(IncrementalPass, DataAndConfigFilesMatchWholePassAfterRandomEdits) {
  std::u16string yml, sql, css;
  for (int i = 0; i < 5; ++i) {
    yml += u"# settings\nname: harbor\nport = 8080\nlist:\n  - 'a'\n  - \"b\"\n\n";
    sql += u"-- rows\nSELECT a, 'x' FROM t /* all\n */ WHERE b = \"y\";\n\n";
    css += u"/* c */\nbody { color: red; }\na:hover { content: \"x\"; }\n\n";
  }
  fuzz("yml", yml, 200, 6);
  fuzz("sql", sql, 200, 7);
  fuzz("css", css, 200, 8);
}

TEST_F(IncrementalPass, PagesWithTagsStayCorrect) {
  // Tags keep state across lines: these take the whole pass, and must not
  // be fooled by a partial one after a tag disappears or appears.
  std::u16string html;
  for (int i = 0; i < 4; ++i) {
    html += u"<p class=\"a\">text</p>\n<!-- note -->\n<script>var a = 'x';</script>\n\n";
  }
  fuzz("html", html, 150, 9, false);
  fuzz("php", u"<?php\n$a = 'x'; // c\n?>\n<b>bold</b>\n" + html, 150, 10, false);
}

TEST_F(IncrementalPass, TypingInALargeFileScansAFewLines) {
  std::u16string text;
  while (text.size() < 200000) text += kCpp;
  auto parser = CodeFactory::codeFormatParserWithExtension("cpp");
  TextStorage storage(text);
  storage.addEditObserver(
      [&](TextRange edited, std::ptrdiff_t change) { parser->noteEdit(edited, change); });
  parser->parserSmart(storage);
  EXPECT_EQ(parser->lastScannedRange().length, storage.length());
  std::size_t at = storage.string().find(u"total_ += v", text.size() / 2);
  for (char16_t c : std::u16string(u"int y = 2;")) {
    storage.replaceCharacters(TextRange{at++, 0}, std::u16string(1, c));
    const std::uint64_t writes = storage.attributeWriteCount();
    parser->parserSmart(storage);
    EXPECT_LT(parser->lastScannedRange().length, 400u);
    EXPECT_LE(storage.attributeWriteCount() - writes, 4u);
  }
  // Opening a block comment re-colours up to where it closes, and no further
  // than the scan needs.
  storage.replaceCharacters(TextRange{at, 0}, u"/*");
  parser->parserSmart(storage);
  EXPECT_EQ(storage.attributesAt(at + 4).foregroundColor, CodeFormatParser::commentColor());
  EXPECT_LT(parser->lastScannedRange().length, 2000u);
}

TEST_F(IncrementalPass, ChangesOutsideTheParsersSightGetAWholePass) {
  auto parser = CodeFactory::codeFormatParserWithExtension("cpp");
  TextStorage storage(std::u16string(kCpp) + kCpp);
  parser->parserSmart(storage);
  // An edit nobody reported: the pass cannot trust its previous lists.
  storage.replaceCharacters(TextRange{0, 0}, u"/* ");
  parser->parserSmart(storage);
  EXPECT_EQ(parser->lastScannedRange().length, storage.length());
  EXPECT_EQ(storage.attributesAt(10).foregroundColor, CodeFormatParser::commentColor());
}

}  // namespace
}  // namespace harbor
