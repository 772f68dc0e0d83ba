// harbor epub open and cache: books as the reader sees them, and the cache of
// unpacked books.
#include <iostream>
#include <memory>
#include <string>

#include "cli/Commands.h"
#include "cli/Output.h"
#include "platform/UserDefaults.h"
#include "viewers/epub/EpubReader.h"
#include "viewers/epub/EpubUtil.h"

namespace harbor::cli {
namespace {

struct OpenOptions {
  std::string file;
  bool streaming = false;
  bool json = false;
};

struct CacheOptions {
  bool prune = false;
  bool clear = false;
  bool json = false;
};

ordered_json textOrNull(const std::string& s) {
  return s.empty() ? ordered_json(nullptr) : ordered_json(s);
}

int runOpen(const OpenOptions& opts) {
  if (auto problem = checkPath(opts.file, PathNeed::File)) return fail("epub", *problem);
  Error error;
  auto book = EpubUtil::openBook(opts.file, &error);
  if (!book) return fail("epub", opts.file + ": " + error.message);
  EpubReader reader(book->folder);
  if (opts.streaming) {
    reader.parserStreaming();
  } else {
    reader.parser();
  }
  const auto chapters = reader.chapters();
  if (!opts.json) {
    auto title = reader.metadataInfo().find("dc:title");
    std::cout << "folder: " << book->folder << (book->cached ? " (cached)" : "") << "\n"
              << "package: "
              << (reader.containFullPath().empty() ? "(none)" : reader.containFullPath()) << "\n"
              << "title: " << (title == reader.metadataInfo().end() ? "(none)" : title->second)
              << "\n"
              << "chapters: " << chapters.size() << "\n";
    for (const auto& c : chapters) std::cout << "  " << c << "\n";
    return 0;
  }
  ordered_json metadata = ordered_json::object();
  for (const auto& [k, v] : reader.metadataInfo()) metadata[k] = v;
  ordered_json manifest = ordered_json::object();
  for (const auto& [id, record] : reader.manifestItemDict()) {
    ordered_json item = ordered_json::object();
    for (const auto& [k, v] : record) item[k] = v;
    manifest[id] = std::move(item);
  }
  ordered_json guide = ordered_json::array();
  for (const auto& record : reader.guideList()) {
    ordered_json ref = ordered_json::object();
    for (const char* key : {"href", "type", "title"}) {
      auto it = record.find(key);
      ref[key] = it == record.end() ? "" : it->second;
    }
    guide.push_back(std::move(ref));
  }
  printJson(ordered_json{{"folder", book->folder},
                         {"cached", book->cached},
                         {"containFullPath", textOrNull(reader.containFullPath())},
                         {"containMediaType", textOrNull(reader.containMediaType())},
                         {"metadata", metadata},
                         {"manifest", manifest},
                         {"spine", reader.spalItemList()},
                         {"guide", guide},
                         {"chapters", chapters}});
  return 0;
}

int runCache(const CacheOptions& opts) {
  std::size_t gone = 0, aged = 0;
  if (opts.clear) {
    gone = EpubUtil::getAllEpubDictionary().size();
    EpubUtil::removeAllEpub();
  }
  if (opts.prune) {
    gone += EpubUtil::removeCacheEpubFolders();
    aged = EpubUtil::removeMoreTimeCache();
  }
  ordered_json list = ordered_json::array();
  for (const auto& [key, record] : EpubUtil::getAllEpubDictionary()) {
    const auto* map = record.asMap();
    auto get = [&](std::string_view k) -> const PlistValue* {
      if (!map) return nullptr;
      auto it = map->find(std::string(k));
      return it == map->end() ? nullptr : &it->second;
    };
    auto date = [&](std::string_view k) -> ordered_json {
      const PlistValue* v = get(k);
      if (!v || !v->asDate()) return nullptr;
      return std::chrono::duration_cast<std::chrono::seconds>(v->asDate()->time_since_epoch())
          .count();
    };
    const PlistValue* size = get(EpubUtil::kFileSizeKey);
    const PlistValue* rel = get(EpubUtil::kRelativePathKey);
    list.push_back(
        {{"path", key},
         {"folder", EpubUtil::recordFolder(record)},
         {std::string(EpubUtil::kRelativePathKey),
          rel && rel->asString() ? ordered_json(*rel->asString()) : ordered_json(nullptr)},
         {std::string(EpubUtil::kFileSizeKey),
          size ? ordered_json(size->asInteger().value_or(0)) : ordered_json(nullptr)},
         {std::string(EpubUtil::kModifiedDateKey), date(EpubUtil::kModifiedDateKey)},
         {std::string(EpubUtil::kCreateDateKey), date(EpubUtil::kCreateDateKey)}});
  }
  if (opts.json) {
    printJson(list);
    return 0;
  }
  if (opts.clear || opts.prune)
    std::cout << "removed " << gone << " records of missing books, " << aged << " old records\n";
  for (const auto& item : list)
    std::cout << item["path"].get<std::string>() << " -> " << item["folder"].get<std::string>()
              << "\n";
  return 0;
}

void addEpubCommands(CLI::App& app, int& exitCode) {
  CLI::App* epub =
      app.add_subcommand("epub", "Open EPUB books and manage the cache of unpacked books");
  epub->require_subcommand(1);

  auto openOpts = std::make_shared<OpenOptions>();
  CLI::App* open = epub->add_subcommand(
      "open", "Unpack a book (or reuse its cached folder) and read its container and package");
  open->add_option("FILE", openOpts->file, "The .epub file")->required();
  open->add_flag("--streaming", openOpts->streaming,
                 "Read the package with the event parser (no guide)");
  addJsonFlag(
      open, openOpts->json,
      "Print {folder, cached, containFullPath, containMediaType, metadata, manifest, spine, "
      "guide, chapters}");
  open->callback([openOpts, &exitCode] { exitCode = runOpen(*openOpts); });

  auto cacheOpts = std::make_shared<CacheOptions>();
  CLI::App* cache = epub->add_subcommand("cache", "List the cached books and their folders");
  cache->add_flag("--prune", cacheOpts->prune,
                  "Drop records of books that are gone, and (once a day) records over 30 days old");
  cache->add_flag("--clear", cacheOpts->clear, "Drop every record and its unpacked folder");
  addJsonFlag(cache, cacheOpts->json, "Print the records as a list");
  cache->callback([cacheOpts, &exitCode] { exitCode = runCache(*cacheOpts); });
}

}  // namespace

const CommandRegistrar epubCommands(70, addEpubCommands);

}  // namespace harbor::cli
