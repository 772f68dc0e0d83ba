#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "syntax/CodeConfigItem.h"
#include "syntax/CodeFormatParser.h"
#include "syntax/StxParser.h"

namespace harbor {

// The one place that knows which parser class and which syntax file belong
// to a document: fixed tables by extension and by file name, the user's own
// assignments, and a cache of parsed syntax files shared between parsers.
class CodeFactory {
 public:
  using ConfigTable = std::map<std::string, CodeConfigItem>;
  using ParserMaker = std::function<std::shared_ptr<CodeFormatParser>()>;

  static CodeFactory& singleInstance();

  // Builds the tables (once), then loads the user's assignments.
  static void initialize();
  // The browsing screens' list of text file formats.
  static std::vector<std::string> createTextFileFormat();
  static void loadCustomExtensionsSyntax();
  static void loadCustomOnlyForFileSyntax();
  // Extension to "" for every extension that opens in the editor.
  static const std::map<std::string, std::string>& allSupportTextExtensions();
  static std::map<std::string, std::string> textExtension();
  static ConfigTable customExtensions();
  static ConfigTable customFileNames();
  static const ConfigTable& builtinExtensions();
  static const ConfigTable& builtinFileNames();
  // The extension is a key of the text, custom or built-in tables, as given.
  static bool isSupportTextFormat(std::string_view extension);
  static bool isSupportTextFormat(std::string_view extension, std::string_view filePath);

  // What decides a file's format, and by which rule: "custom-file-name",
  // "file-name", "custom-extension", "extension"; for a file the registry
  // knows nothing by name, "interpreter", "emacs-mode" or "vim-modeline"
  // when its first lines name the language; else "too-large" or "none",
  // both plain text.
  struct FormatChoice {
    std::optional<CodeConfigItem> row;
    std::string type;          // the parser's formatType
    std::string containsType;  // "rb" inside an .erb page
    std::string rule;
  };
  static FormatChoice chooseFormat(const std::string& extension, const std::string& inExtenstion,
                                   const std::string& filePath);

  static std::shared_ptr<CodeFormatParser> codeFormatParser(const std::string& filePath);
  static std::shared_ptr<CodeFormatParser> codeFormatParserWithExtension(
      const std::string& extension);
  static std::shared_ptr<CodeFormatParser> codeFormatParserWithExtension(
      const std::string& extension, const std::string& inExtenstion, const std::string& filePath);

  // Custom file names, built-in file names, custom extensions, built-in
  // extensions: the first hit.
  static std::optional<CodeConfigItem> getConfigItem(const std::string& extension,
                                                     const std::string& fileName);
  static std::optional<std::string> getStxParserFlag(const std::optional<CodeConfigItem>& item);
  static std::shared_ptr<StxParser> getStxParser(const std::optional<std::string>& key);
  static void saveStxParser(const std::optional<std::string>& key,
                            std::shared_ptr<StxParser> parser);
  static std::shared_ptr<CodeFormatParser> getFormatParser(
      const std::string& type, const std::string& cls, const std::string& containsLanguageType,
      const std::string& filePath, const std::optional<CodeConfigItem>& configItem);
  static std::map<std::string, std::shared_ptr<StxParser>> codeFormatContainer();
  static void removeAllCodeFormatContainer();
  void enterBackgroundEvent();

  // A parser of the class named, configured from a registry row (or, with
  // none, from the class's own default syntax file).
  static std::shared_ptr<CodeFormatParser> instanceWithConfigItem(
      const std::string& cls, const std::optional<CodeConfigItem>& item);
  static std::shared_ptr<CodeFormatParser> makeParser(const std::string& cls);
  static void registerParserClass(const std::string& cls, ParserMaker maker);
  // Registers class T under its name.
  template <class T>
  static void registerParser(const char* cls) {
    registerParserClass(cls, [] { return std::make_shared<T>(); });
  }
};

// Parser classes register here; each family of parsers has its own function.
void registerCommonParsers();
void registerHtmlParsers();
void registerLanguageParsers();

}  // namespace harbor
