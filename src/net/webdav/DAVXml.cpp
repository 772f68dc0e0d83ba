#include "net/webdav/DAVXml.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <climits>
#include <memory>
#include <mutex>

#include "platform/Log.h"

namespace harbor::davxml {
namespace {

struct DocFree {
  void operator()(xmlDoc* d) const { xmlFreeDoc(d); }
};
using Doc = std::unique_ptr<xmlDoc, DocFree>;

Doc parse(std::string_view body) {
  static std::once_flag once;
  std::call_once(once, [] { xmlInitParser(); });
  if (body.empty() || body.size() > INT_MAX) return nullptr;
  return Doc(
      xmlReadMemory(body.data(), static_cast<int>(body.size()), nullptr, nullptr, kParseOptions));
}

bool named(const xmlNode* n, const char* name) {
  return n && n->type == XML_ELEMENT_NODE && n->name &&
         xmlStrcmp(n->name, reinterpret_cast<const xmlChar*>(name)) == 0;
}

// Depth first, without recursion: bodies may nest deeply.
const xmlNode* findFirst(const xmlNode* from, const char* name) {
  const xmlNode* n = from;
  while (n) {
    if (named(n, name)) return n;
    if (n->type == XML_ELEMENT_NODE && n->children) {
      n = n->children;
      continue;
    }
    while (n != from && !n->next) n = n->parent;
    if (n == from) return nullptr;
    n = n->next;
  }
  return nullptr;
}

const xmlNode* child(const xmlNode* parent, const char* name) {
  for (const xmlNode* c = parent ? parent->children : nullptr; c; c = c->next) {
    if (named(c, name)) return c;
  }
  return nullptr;
}

const xmlNode* firstElement(const xmlNode* parent) {
  for (const xmlNode* c = parent ? parent->children : nullptr; c; c = c->next) {
    if (c->type == XML_ELEMENT_NODE) return c;
  }
  return nullptr;
}

std::string nodeText(const xmlNode* n) {
  std::string out;
  for (const xmlNode* c = n ? n->children : nullptr; c; c = c->next) {
    if ((c->type == XML_TEXT_NODE || c->type == XML_CDATA_SECTION_NODE) && c->content) {
      out += reinterpret_cast<const char*>(c->content);
    }
  }
  return out;
}

}  // namespace

unsigned propertyMask(std::string_view body) {
  if (body.empty()) return kAllProperties;
  Doc doc = parse(body);
  const xmlNode* root = doc ? xmlDocGetRootElement(doc.get()) : nullptr;
  const xmlNode* propfind = findFirst(root, "propfind");
  const xmlNode* prop = child(propfind, "prop");
  if (!prop) {
    // allprop and propname land here too: both mean everything we have.
    if (!child(propfind, "allprop") && !child(propfind, "propname")) {
      HB_LOG("DAVResponse", "HTTP Server: Invalid DAV properties\n" + std::string(body));
    }
    return kAllProperties;
  }
  unsigned mask = 0;
  for (const xmlNode* c = prop->children; c; c = c->next) {
    if (c->type != XML_ELEMENT_NODE || !c->name) continue;
    std::string_view name(reinterpret_cast<const char*>(c->name));
    if (name == "resourcetype") {
      mask |= kResourceType;
    } else if (name == "creationdate") {
      mask |= kCreationDate;
    } else if (name == "getlastmodified") {
      mask |= kLastModified;
    } else if (name == "getcontentlength") {
      mask |= kContentLength;
    } else {
      HB_LOG("DAVResponse", "unknown DAV property requested: " + std::string(name));
    }
  }
  return mask == 0 ? kAllProperties : mask;
}

LockInfo lockInfo(std::string_view body) {
  LockInfo info;
  Doc doc = parse(body);
  const xmlNode* root = doc ? xmlDocGetRootElement(doc.get()) : nullptr;
  if (!root) return info;
  info.parsed = true;
  const xmlNode* lockinfo = findFirst(root, "lockinfo");
  if (!lockinfo) {
    HB_LOG("DAVResponse", "LOCK body without lockinfo");
    return info;
  }
  if (const xmlNode* e = firstElement(child(lockinfo, "lockscope"))) {
    info.scope = reinterpret_cast<const char*>(e->name);
  }
  if (const xmlNode* e = firstElement(child(lockinfo, "locktype"))) {
    info.type = reinterpret_cast<const char*>(e->name);
  }
  if (const xmlNode* href = child(child(lockinfo, "owner"), "href")) {
    info.owner = nodeText(href);
  }
  return info;
}

std::string escapeText(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

}  // namespace harbor::davxml
