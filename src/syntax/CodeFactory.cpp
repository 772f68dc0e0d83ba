#include "syntax/CodeFactory.h"

#include <filesystem>
#include <mutex>
#include <system_error>

#include "platform/Unicode.h"
#include "prefs/EditorUserDefaults.h"
#include "prefs/EditorUtils.h"
#include "prefs/TextExtensions.h"
#include "syntax/FileContentFormat.h"

namespace harbor {
namespace {

struct Registry {
  std::once_flag built;
  CodeFactory::ConfigTable fileNames;
  CodeFactory::ConfigTable extensions;
  std::map<std::string, std::string> textExtensions;
  std::map<std::string, CodeFactory::ParserMaker> classes;

  std::mutex customMutex;  // the user's two tables are rebuilt while read
  CodeFactory::ConfigTable customExtensions;
  CodeFactory::ConfigTable customFileNames;

  std::mutex cacheMutex;
  std::map<std::string, std::shared_ptr<StxParser>> cache;
};

Registry& registry() {
  static Registry r;
  return r;
}

void addRows(CodeFactory::ConfigTable& table, std::initializer_list<const char*> keys,
             const char* cls, const char* stx, long type) {
  for (const char* key : keys) {
    std::string stem = stx;
    if (auto dot = stem.rfind(".stx"); dot != std::string::npos) stem.erase(dot);
    table[key] = CodeConfigItem{cls, stem, stx, type};
  }
}

void buildTables(Registry& r) {
  constexpr long kName = CodeConfigItem::BuiltinFileName;
  addRows(r.fileNames, {"nginx.conf"}, "KeyValueCfgParser", "nginx.conf.stx", kName);
  addRows(r.fileNames, {".htaccess"}, "CommonFormatParser", "htaccess.stx", kName);
  addRows(r.fileNames, {"podfile"}, "CommonFormatParser", "podfile.stx", kName);
  addRows(r.fileNames, {"cmakelists.txt"}, "CommonFormatParser", "CMakeLists.txt.stx", kName);
  addRows(r.fileNames, {"makefile"}, "CommonFormatParser", "makefile.stx", kName);
  addRows(r.fileNames, {"configure"}, "CommonFormatParser", "configure.stx", kName);

  constexpr long kExt = CodeConfigItem::BuiltinExtension;
  auto& e = r.extensions;
  addRows(e, {"js"}, "JSFormatParser", "js.stx", kExt);
  addRows(e, {"json"}, "JsonFormatParser", "js.stx", kExt);
  addRows(e, {"html", "htm", "rhtml"}, "HtmlFormatParser", "html5.stx", kExt);
  addRows(e, {"htc"}, "HtcFormatParser", "html5.stx", kExt);
  addRows(e, {"shtml", "shtm", "stm"}, "ShtmlFormatParser", "shtml.stx", kExt);
  addRows(e, {"css", "scss"}, "CssFormatParser", "css3.stx", kExt);
  addRows(e, {"cs"}, "CsFormatParser", "cs.stx", kExt);
  addRows(e, {"aspx", "ascx", "master", "asp"}, "AspxHtmlFormatParser", "html5.stx", kExt);
  addRows(e, {"aspcore"}, "AspFormatParser", "asp.stx", kExt);
  addRows(e, {"php"}, "PhpHtmlFormatParser", "html5.stx", kExt);
  addRows(e, {"phpcore"}, "PhpFormatParser", "php.stx", kExt);
  addRows(e, {"java"}, "JavaFormatParser", "java.stx", kExt);
  addRows(e, {"jsp"}, "JspHtmlFormatParser", "html5.stx", kExt);
  addRows(e, {"jspcore"}, "JspFormatParser", "jsp.stx", kExt);
  addRows(e, {"cpp", "hpp", "c", "cc", "cxx", "hxx", "h"}, "CppFormatParser", "cpp.stx", kExt);
  addRows(e, {"mm", "m"}, "ObjcFormatParser", "objc.stx", kExt);
  addRows(e, {"asm", "s"}, "AsmFormatParser", "masm.stx", kExt);
  addRows(e, {"sql"}, "SqlFormatParser", "sql.stx", kExt);
  addRows(e, {"vb"}, "VbNetFormatParser", "vbnet.stx", kExt);
  addRows(e, {"vbs", "bas", "vbp", "frm", "vsh"}, "VbsFormatParser", "vbscript.stx", kExt);
  e["ashx"] = CodeConfigItem{"AshxFormatParser", "ashx", "", kExt};
  e["asax"] = CodeConfigItem{"AsaxFormatParser", "asax", "", kExt};
  addRows(e, {"pl", "pm"}, "PerlFormatParser", "perl.stx", kExt);
  addRows(e, {"py"}, "PythonFormatParser", "python3.stx", kExt);
  addRows(e, {"rb"}, "RubyFormatParser", "ruby.stx", kExt);
  addRows(e, {"erl"}, "ErlangFormatParser", "erlang.stx", kExt);
  addRows(e, {"xsl", "xslt"}, "XslFormatParser", "xsl.stx", kExt);
  addRows(e, {"xml", "xib"}, "XmlFormatParser", "xml.stx", kExt);
  addRows(e, {"stx"}, "CommonFormatParser", "stx.stx", kExt);
  addRows(e, {"groovy", "gradle"}, "GroovyFormaterParser", "groovy.stx", kExt);
  addRows(e, {"scala"}, "ScalaFormatParser", "scala.stx", kExt);
  addRows(e, {"hs"}, "HaskellFormatParser", "haskell.stx", kExt);
  addRows(e, {"pas"}, "PascalFormatParser", "pascal.stx", kExt);
  addRows(e, {"sh", "command"}, "ShellFormatParser", "shell.stx", kExt);
  addRows(e, {"tcl"}, "TclFormatParser", "tcl.stx", kExt);
  addRows(e, {"proto"}, "ProtoFormatParser", "proto.stx", kExt);
  addRows(e, {"m4"}, "ProtoFormatParser", "m4.stx", kExt);
  addRows(e, {"yml", "properties", "cnf", "ini"}, "KeyValueFormatPaser", "yml.stx", kExt);
  addRows(e, {"cfg"}, "KeyValueCfgParser", "cfg.stx", kExt);
  addRows(e, {"conf"}, "KeyValueCfgParser", "yml.stx", kExt);

  r.textExtensions = CodeFactory::textExtension();
}

std::string lower(std::string_view s) {
  return toLower(s);
}

std::string extensionOf(const std::string& path) {
  std::string name = std::filesystem::path(path).filename().string();
  auto dot = name.rfind('.');
  return dot == std::string::npos ? std::string() : name.substr(dot + 1);
}

void ensureBuilt() {
  Registry& r = registry();
  std::call_once(r.built, [&r] {
    buildTables(r);
    registerCommonParsers();
    registerHtmlParsers();
    registerLanguageParsers();
    CodeFactory::loadCustomExtensionsSyntax();
    CodeFactory::loadCustomOnlyForFileSyntax();
  });
}

}  // namespace

std::string CodeConfigItem::description() const {
  return "<CodeConfigItem:" + std::to_string(reinterpret_cast<std::uintptr_t>(this)) +
         ">class:" + cls + ",stx:" + stxFilePath + ",extension:" + extension +
         ",type:" + std::to_string(configType);
}

CodeFactory& CodeFactory::singleInstance() {
  static CodeFactory instance;
  return instance;
}

void CodeFactory::initialize() {
  ensureBuilt();
}

std::vector<std::string> CodeFactory::createTextFileFormat() {
  return {"txt", "html", "shtml", "css", "xml", "php", "js",   "json", "aspx", "asp",
          "cs",  "java", "jsp",   "c",   "cpp", "h",   "sql",  "m",    "mm",   "asm",
          "pl",  "py",   "rb",    "xsl", "vbs", "vb",  "conf", "cnf"};
}

std::map<std::string, std::string> CodeFactory::textExtension() {
  return TextExtensions::builtin();
}

const std::map<std::string, std::string>& CodeFactory::allSupportTextExtensions() {
  ensureBuilt();
  return registry().textExtensions;
}

const CodeFactory::ConfigTable& CodeFactory::builtinExtensions() {
  ensureBuilt();
  return registry().extensions;
}

const CodeFactory::ConfigTable& CodeFactory::builtinFileNames() {
  ensureBuilt();
  return registry().fileNames;
}

CodeFactory::ConfigTable CodeFactory::customExtensions() {
  ensureBuilt();
  std::lock_guard lock(registry().customMutex);
  return registry().customExtensions;
}

CodeFactory::ConfigTable CodeFactory::customFileNames() {
  ensureBuilt();
  std::lock_guard lock(registry().customMutex);
  return registry().customFileNames;
}

void CodeFactory::loadCustomExtensionsSyntax() {
  ConfigTable table;
  for (const auto& [ext, stx] : EditorUserDefaults::getAllExtensionsToFileName()) {
    table[ext] = CodeConfigItem{"CommonFormatParser", ext, stx, CodeConfigItem::UserExtension};
  }
  std::lock_guard lock(registry().customMutex);
  registry().customExtensions = std::move(table);
  TextExtensions::reloadCustom();
}

void CodeFactory::loadCustomOnlyForFileSyntax() {
  ConfigTable table;
  for (const auto& [name, stx] : EditorUserDefaults::getAllExtensionsToOnlyFileName()) {
    table[name] = CodeConfigItem{"CommonFormatParser", name, stx, CodeConfigItem::UserFileName};
  }
  std::lock_guard lock(registry().customMutex);
  registry().customFileNames = std::move(table);
}

bool CodeFactory::isSupportTextFormat(std::string_view extension) {
  return isSupportTextFormat(extension, {});
}

bool CodeFactory::isSupportTextFormat(std::string_view extension, std::string_view) {
  const std::string key(extension);
  if (allSupportTextExtensions().count(key)) return true;
  {
    std::lock_guard lock(registry().customMutex);
    if (registry().customExtensions.count(key)) return true;
  }
  return builtinExtensions().count(key) > 0;
}

std::optional<CodeConfigItem> CodeFactory::getConfigItem(const std::string& extension,
                                                         const std::string& fileName) {
  ensureBuilt();
  Registry& r = registry();
  {
    std::lock_guard lock(r.customMutex);
    if (auto it = r.customFileNames.find(fileName); it != r.customFileNames.end())
      return it->second;
  }
  if (auto it = r.fileNames.find(fileName); it != r.fileNames.end()) return it->second;
  {
    std::lock_guard lock(r.customMutex);
    if (auto it = r.customExtensions.find(extension); it != r.customExtensions.end()) {
      return it->second;
    }
  }
  if (auto it = r.extensions.find(extension); it != r.extensions.end()) return it->second;
  return std::nullopt;
}

std::optional<std::string> CodeFactory::getStxParserFlag(
    const std::optional<CodeConfigItem>& item) {
  if (!item || item->stxFilePath.empty()) return std::nullopt;
  switch (item->configType) {
    case CodeConfigItem::UserExtension:
      return "Extension-" + item->stxFilePath;
    case CodeConfigItem::UserFileName:
      return "FileOnly-" + item->stxFilePath;
    case CodeConfigItem::BuiltinFileName:
      return "FileOnlyLocal-" + item->stxFilePath;
    default:
      return "Default-" + item->stxFilePath;
  }
}

std::shared_ptr<StxParser> CodeFactory::getStxParser(const std::optional<std::string>& key) {
  if (!key) return nullptr;
  std::lock_guard lock(registry().cacheMutex);
  auto it = registry().cache.find(*key);
  return it == registry().cache.end() ? nullptr : it->second;
}

void CodeFactory::saveStxParser(const std::optional<std::string>& key,
                                std::shared_ptr<StxParser> parser) {
  if (!key || !parser) return;
  std::lock_guard lock(registry().cacheMutex);
  registry().cache[*key] = std::move(parser);
}

std::map<std::string, std::shared_ptr<StxParser>> CodeFactory::codeFormatContainer() {
  std::lock_guard lock(registry().cacheMutex);
  return registry().cache;
}

void CodeFactory::removeAllCodeFormatContainer() {
  std::lock_guard lock(registry().cacheMutex);
  registry().cache.clear();
}

void CodeFactory::enterBackgroundEvent() {
  removeAllCodeFormatContainer();
}

void CodeFactory::registerParserClass(const std::string& cls, ParserMaker maker) {
  registry().classes[cls] = std::move(maker);
}

std::shared_ptr<CodeFormatParser> CodeFactory::makeParser(const std::string& cls) {
  ensureBuilt();
  auto& classes = registry().classes;
  auto it = classes.find(cls);
  if (it == classes.end()) it = classes.find("CommonFormatParser");
  return it->second();
}

std::shared_ptr<CodeFormatParser> CodeFactory::instanceWithConfigItem(
    const std::string& cls, const std::optional<CodeConfigItem>& item) {
  auto parser = makeParser(cls);
  std::optional<std::filesystem::path> file;
  if (item) {
    file =
        EditorUtils::sourceURLWithConfigItem(static_cast<int>(item->configType), item->stxFilePath);
  } else if (std::string name = parser->defaultStxName(); !name.empty()) {
    file = EditorUtils::sourceURLWithName(name);
  }
  parser->codeConfigItem = item;
  parser->loadStxParser(file);
  return parser;
}

std::shared_ptr<CodeFormatParser> CodeFactory::getFormatParser(
    const std::string& type, const std::string& cls, const std::string& containsLanguageType,
    const std::string& filePath, const std::optional<CodeConfigItem>& configItem) {
  const std::optional<std::string> key = getStxParserFlag(configItem);
  std::shared_ptr<CodeFormatParser> parser;
  if (auto cached = getStxParser(key)) {
    parser = makeParser(cls);
    parser->codeConfigItem = configItem;
    parser->setStxParser(std::move(cached));
  } else {
    parser = instanceWithConfigItem(cls, configItem);
    saveStxParser(key, parser->stxParser);
  }
  parser->extTag = parser->formatType = toUtf16(type);
  parser->formatInContainsType = toUtf16(containsLanguageType);
  std::filesystem::path p(filePath);
  parser->folderPath = p.parent_path().string();
  parser->fileName = p.filename().string();
  parser->initPara();
  return parser;
}

std::shared_ptr<CodeFormatParser> CodeFactory::codeFormatParser(const std::string& filePath) {
  return codeFormatParserWithExtension(extensionOf(filePath), "", filePath);
}

std::shared_ptr<CodeFormatParser> CodeFactory::codeFormatParserWithExtension(
    const std::string& extension) {
  return codeFormatParserWithExtension(extension, "", "Untitle." + extension);
}

CodeFactory::FormatChoice CodeFactory::chooseFormat(const std::string& extension,
                                                    const std::string& inExtenstion,
                                                    const std::string& filePath) {
  ensureBuilt();
  FormatChoice choice;
  std::error_code ec;
  const auto size = std::filesystem::file_size(filePath, ec);
  if (!ec && size > kHighlightCutOff) {
    choice.rule = "too-large";
    return choice;
  }
  const std::string ext = lower(extension);
  std::string contained = lower(inExtenstion);
  if (contained.empty()) contained = "html";
  choice.type = ext;
  // "page.html.erb": the page's own language, with Ruby inside.
  if (ext == "erb") {
    choice.type = contained;
    choice.containsType = "rb";
  }
  const std::string name = lower(std::filesystem::path(filePath).filename().string());
  if ((choice.row = getConfigItem(choice.type, name))) {
    switch (choice.row->configType) {
      case CodeConfigItem::UserFileName:
        choice.rule = "custom-file-name";
        break;
      case CodeConfigItem::BuiltinFileName:
        choice.rule = "file-name";
        break;
      case CodeConfigItem::UserExtension:
        choice.rule = "custom-extension";
        break;
      default:
        choice.rule = "extension";
    }
    return choice;
  }
  // Nothing by name: a script may say what it is in its first lines.
  if (auto hint = FileContentFormat::fromFile(filePath)) {
    const std::string key = hint->fileName ? std::string() : hint->key;
    if ((choice.row = getConfigItem(key, hint->fileName ? hint->key : std::string()))) {
      choice.type = key;
      choice.rule = hint->rule;
      return choice;
    }
  }
  choice.type = "txt";
  choice.rule = "none";
  return choice;
}

std::shared_ptr<CodeFormatParser> CodeFactory::codeFormatParserWithExtension(
    const std::string& extension, const std::string& inExtenstion, const std::string& filePath) {
  const FormatChoice choice = chooseFormat(extension, inExtenstion, filePath);
  if (choice.row) {
    return getFormatParser(choice.type, choice.row->cls, choice.containsType, filePath, choice.row);
  }
  return getFormatParser("txt", "OtherTextFileFormatParser", choice.containsType, filePath,
                         std::nullopt);
}

}  // namespace harbor
