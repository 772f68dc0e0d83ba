#include "viewers/epub/EpubReader.h"

#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>

namespace harbor {
namespace fs = std::filesystem;

namespace {

// Whole file, or nothing when it is missing, not a plain file or too large.
std::optional<std::string> readSmallFile(const fs::path& path) {
  std::error_code ec;
  if (!fs::is_regular_file(path, ec)) return std::nullopt;
  auto size = fs::file_size(path, ec);
  if (ec || size > EpubReader::kMaxXmlBytes) return std::nullopt;
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::string data(size, '\0');
  in.read(data.data(), static_cast<std::streamsize>(size));
  if (static_cast<std::size_t>(in.gcount()) != size) return std::nullopt;
  return data;
}

// Only the five predefined entities exist: a declared one is never stored,
// so it can neither fetch a file nor multiply itself.
xmlEntityPtr predefinedOnly(void*, const xmlChar* name) {
  return xmlGetPredefinedEntity(name);
}
void ignoreEntityDecl(void*, const xmlChar*, int, const xmlChar*, const xmlChar*, xmlChar*) {}
void ignoreUnparsedEntityDecl(void*, const xmlChar*, const xmlChar*, const xmlChar*,
                              const xmlChar*) {}
void ignoreMessage(void*, const char*, ...) {}

constexpr int kParseOptions = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;

void lockDown(xmlSAXHandler* sax) {
  sax->getEntity = predefinedOnly;
  sax->getParameterEntity = predefinedOnly;
  sax->entityDecl = ignoreEntityDecl;
  sax->unparsedEntityDecl = ignoreUnparsedEntityDecl;
  sax->externalSubset = nullptr;
  sax->resolveEntity = nullptr;
  sax->warning = ignoreMessage;
  sax->error = ignoreMessage;
  sax->fatalError = ignoreMessage;
  sax->serror = nullptr;
}

// A well-formed document's tree, or null.
xmlDocPtr readTree(const std::string& data) {
  if (data.size() > static_cast<std::size_t>(INT32_MAX)) return nullptr;
  xmlParserCtxtPtr ctxt = xmlCreateMemoryParserCtxt(data.data(), static_cast<int>(data.size()));
  if (!ctxt) return nullptr;
  lockDown(ctxt->sax);
  xmlCtxtUseOptions(ctxt, kParseOptions);
  xmlParseDocument(ctxt);
  xmlDocPtr doc = ctxt->myDoc;
  ctxt->myDoc = nullptr;
  if (doc && !ctxt->wellFormed) {
    xmlFreeDoc(doc);
    doc = nullptr;
  }
  xmlFreeParserCtxt(ctxt);
  return doc;
}

struct DocHolder {
  xmlDocPtr doc;
  ~DocHolder() {
    if (doc) xmlFreeDoc(doc);
  }
};

std::string qualifiedName(const xmlChar* prefix, const xmlChar* local) {
  std::string name;
  if (prefix && *prefix) {
    name = reinterpret_cast<const char*>(prefix);
    name += ':';
  }
  if (local) name += reinterpret_cast<const char*>(local);
  return name;
}

std::string nodeName(xmlNodePtr node) {
  return qualifiedName(node->ns ? node->ns->prefix : nullptr, node->name);
}

// Children elements named `name` as written.
std::vector<xmlNodePtr> childrenNamed(xmlNodePtr parent, std::string_view name) {
  std::vector<xmlNodePtr> out;
  if (!parent) return out;
  for (xmlNodePtr c = parent->children; c; c = c->next)
    if (c->type == XML_ELEMENT_NODE && nodeName(c) == name) out.push_back(c);
  return out;
}

xmlNodePtr firstChildNamed(xmlNodePtr parent, std::string_view name) {
  auto all = childrenNamed(parent, name);
  return all.empty() ? nullptr : all.front();
}

// An attribute by its name as written; none when absent.
std::optional<std::string> attribute(xmlNodePtr node, std::string_view name) {
  for (xmlAttrPtr a = node->properties; a; a = a->next) {
    if (qualifiedName(a->ns ? a->ns->prefix : nullptr, a->name) != name) continue;
    xmlChar* v = xmlNodeListGetString(node->doc, a->children, 1);
    std::string value = v ? reinterpret_cast<const char*>(v) : "";
    xmlFree(v);
    return value;
  }
  return std::nullopt;
}

std::string textOf(xmlNodePtr node) {
  xmlChar* v = xmlNodeGetContent(node);
  std::string text = v ? reinterpret_cast<const char*>(v) : "";
  xmlFree(v);
  return text;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string percentDecode(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '%' && i + 2 < s.size()) {
      int hi = hexValue(s[i + 1]), lo = hexValue(s[i + 2]);
      if (hi >= 0 && lo >= 0) {
        out += static_cast<char>(hi * 16 + lo);
        i += 2;
        continue;
      }
    }
    out += s[i];
  }
  return out;
}

// `relative` (already joined under the folder) in normal form when it stays
// inside `folder`, by name and after following links; empty otherwise.
std::string insideFolder(const std::string& folder, const fs::path& relative) {
  if (relative.empty() || relative.is_absolute() || relative.has_root_name()) return {};
  if (relative.native().find('\0') != std::string::npos) return {};
  fs::path normal = relative.lexically_normal();
  if (normal.empty() || *normal.begin() == ".." || normal == ".") return {};
  for (const auto& part : normal)
    if (part == "..") return {};
  std::error_code ec;
  fs::path base = fs::weakly_canonical(folder, ec);
  if (ec) return {};
  fs::path real = fs::weakly_canonical(fs::path(folder) / normal, ec);
  if (ec) return {};
  auto rel = real.lexically_relative(base);
  if (rel.empty() || *rel.begin() == "..") return {};
  return normal.generic_string();
}

}  // namespace

const std::vector<std::string>& EpubReader::dublinCoreNames() {
  static const std::vector<std::string> names = {"dc:title",     "dc:creator",    "dc:description",
                                                 "dc:language",  "dc:date",       "dc:contributor",
                                                 "dc:publisher", "dc:identifier", "dc:subject"};
  return names;
}

EpubReader::EpubReader(std::string folder) : folder_(std::move(folder)) {
  parserContain();
}

std::string EpubReader::getMetaInfPath() const {
  return (fs::path(folder_) / "META-INF").string();
}

std::string EpubReader::packagePath() const {
  if (containFullPath_.empty()) return {};
  return (fs::path(folder_) / containFullPath_).string();
}

void EpubReader::parserContain() {
  containFullPath_.clear();
  containMediaType_.clear();
  if (auto data = readSmallFile(fs::path(getMetaInfPath()) / "container.xml"))
    parserContainData(*data);
}

void EpubReader::parserContainData(const std::string& data) {
  containFullPath_.clear();
  containMediaType_.clear();
  DocHolder holder{readTree(data)};
  if (!holder.doc) return;
  xmlNodePtr root = xmlDocGetRootElement(holder.doc);
  xmlNodePtr rootfiles = firstChildNamed(root, "rootfiles");
  xmlNodePtr rootfile = firstChildNamed(rootfiles, "rootfile");
  if (!rootfile) return;
  // A root file outside the book is no root file.
  std::string full =
      insideFolder(folder_, percentDecode(attribute(rootfile, "full-path").value_or("")));
  if (full.empty()) return;
  containFullPath_ = full;
  containMediaType_ = attribute(rootfile, "media-type").value_or("");
}

void EpubReader::parser() {
  std::string path = packagePath();
  if (path.empty()) return;
  if (auto data = readSmallFile(path)) parserData(*data);
}

void EpubReader::parserData(const std::string& data) {
  DocHolder holder{readTree(data)};
  if (!holder.doc) return;
  xmlNodePtr root = xmlDocGetRootElement(holder.doc);
  if (!root) return;

  if (xmlNodePtr metadata = firstChildNamed(root, "metadata")) {
    for (const auto& name : dublinCoreNames())
      if (xmlNodePtr node = firstChildNamed(metadata, name)) metadataInfo_[name] = textOf(node);
  }
  for (xmlNodePtr item : childrenNamed(firstChildNamed(root, "manifest"), "item")) {
    std::string id = attribute(item, "id").value_or("");
    if (id.empty()) continue;
    manifestItemDict_[id] = Record{{"href", attribute(item, "href").value_or("")},
                                   {"id", id},
                                   {"media-type", attribute(item, "media-type").value_or("")}};
  }
  for (xmlNodePtr ref : childrenNamed(firstChildNamed(root, "spine"), "itemref"))
    if (auto idref = attribute(ref, "idref")) spalItemList_.push_back(*idref);
  for (xmlNodePtr ref : childrenNamed(firstChildNamed(root, "guide"), "reference"))
    guideList_.push_back(Record{{"href", attribute(ref, "href").value_or("")},
                                {"type", attribute(ref, "type").value_or("")},
                                {"title", attribute(ref, "title").value_or("")}});
}

namespace {

EpubReader* readerOf(void* ctx) {
  return static_cast<EpubReader*>(static_cast<xmlParserCtxtPtr>(ctx)->_private);
}

void onStartElement(void* ctx, const xmlChar* local, const xmlChar* prefix, const xmlChar*, int,
                    const xmlChar**, int nbAttributes, int, const xmlChar** attrs) {
  std::vector<std::pair<std::string, std::string>> list;
  list.reserve(static_cast<std::size_t>(nbAttributes));
  // Five pointers per attribute: local name, prefix, URI, value start, end.
  for (int i = 0; i < nbAttributes; ++i) {
    const xmlChar** a = attrs + 5 * i;
    const char* begin = reinterpret_cast<const char*>(a[3]);
    const char* end = reinterpret_cast<const char*>(a[4]);
    list.emplace_back(qualifiedName(a[1], a[0]),
                      begin && end >= begin ? std::string(begin, end) : std::string());
  }
  readerOf(ctx)->didStartElement(qualifiedName(prefix, local), list);
}

void onEndElement(void* ctx, const xmlChar* local, const xmlChar* prefix, const xmlChar*) {
  readerOf(ctx)->didEndElement(qualifiedName(prefix, local));
}

void onCharacters(void* ctx, const xmlChar* ch, int len) {
  if (len > 0)
    readerOf(ctx)->foundCharacters({reinterpret_cast<const char*>(ch), std::size_t(len)});
}

void onEndDocument(void* ctx) {
  readerOf(ctx)->didEndDocument();
}

}  // namespace

void EpubReader::parserStreaming() {
  std::string path = packagePath();
  if (path.empty()) return;
  if (auto data = readSmallFile(path)) parserStreamingData(*data);
}

void EpubReader::parserStreamingData(const std::string& data) {
  if (data.size() > static_cast<std::size_t>(INT32_MAX)) return;
  xmlParserCtxtPtr ctxt = xmlCreateMemoryParserCtxt(data.data(), static_cast<int>(data.size()));
  if (!ctxt) return;
  xmlSAXHandler* sax = ctxt->sax;
  std::memset(sax, 0, sizeof(*sax));
  sax->initialized = XML_SAX2_MAGIC;
  sax->startElementNs = onStartElement;
  sax->endElementNs = onEndElement;
  sax->characters = onCharacters;
  sax->cdataBlock = onCharacters;
  sax->endDocument = onEndDocument;
  lockDown(sax);
  ctxt->_private = this;
  xmlCtxtUseOptions(ctxt, kParseOptions);
  foundString_.clear();
  xmlParseDocument(ctxt);
  if (ctxt->myDoc) xmlFreeDoc(ctxt->myDoc);
  ctxt->myDoc = nullptr;
  xmlFreeParserCtxt(ctxt);
}

void EpubReader::didStartElement(
    std::string_view name, const std::vector<std::pair<std::string, std::string>>& attributes) {
  // Text belongs to the element it sits in, not to the layout around it.
  foundString_.clear();
  auto find = [&](std::string_view key) -> std::string {
    for (const auto& [k, v] : attributes)
      if (k == key) return v;
    return {};
  };
  if (name == "item") {
    std::string id = find("id");
    if (id.empty()) return;
    Record record;
    for (const auto& [k, v] : attributes) record.emplace(k, v);
    manifestItemDict_[id] = std::move(record);
  } else if (name == "itemref") {
    std::string idref = find("idref");
    if (!idref.empty()) spalItemList_.push_back(idref);
  }
}

void EpubReader::didEndElement(std::string_view name) {
  for (const auto& dc : dublinCoreNames()) {
    if (dc != name) continue;
    metadataInfo_[dc] = foundString_;
    foundString_.clear();
    return;
  }
}

void EpubReader::foundCharacters(std::string_view text) {
  // A text node can't outgrow the file, which is capped; this bounds the
  // pathological case of many tiny nodes as well.
  if (foundString_.size() + text.size() <= kMaxXmlBytes) foundString_.append(text);
}

void EpubReader::didEndDocument() {
  if (delegate_) delegate_->epubReaderDidEndDocument(*this);
}

std::string EpubReader::resolveHref(std::string_view href) const {
  if (containFullPath_.empty() || href.empty()) return {};
  // Another scheme ("http:", "data:") is not a file of the book.
  auto colon = href.find(':');
  if (colon != std::string_view::npos && href.find('/') > colon) return {};
  auto cut = href.find_first_of("#?");
  std::string decoded = percentDecode(href.substr(0, cut));
  if (decoded.empty() || decoded.front() == '/') return {};
  fs::path base = fs::path(containFullPath_).parent_path();
  return insideFolder(folder_, base / decoded);
}

std::vector<std::string> EpubReader::chapters() const {
  std::vector<std::string> out;
  for (const auto& idref : spalItemList_) {
    auto it = manifestItemDict_.find(idref);
    if (it == manifestItemDict_.end()) continue;
    auto href = it->second.find("href");
    if (href == it->second.end()) continue;
    std::string path = resolveHref(href->second);
    if (!path.empty()) out.push_back(std::move(path));
  }
  return out;
}

}  // namespace harbor
