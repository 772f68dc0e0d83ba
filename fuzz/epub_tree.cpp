// Container and package text come from any book: the tree path must end,
// never read outside the book, and keep only what it promises.
#include <cstdint>
#include <string>

#include "ParserChecks.h"
#include "viewers/epub/EpubReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string xml(reinterpret_cast<const char*>(data), size);
  harbor::EpubReader reader("/nonexistent-book");
  reader.parserContainData(xml);
  const std::string& full = reader.containFullPath();
  CHECK(full.empty() || (full[0] != '/' && full.rfind("..", 0) != 0));
  reader.parserData(xml);
  for (const auto& [id, record] : reader.manifestItemDict()) {
    CHECK(!id.empty());
    CHECK(record.size() == 3 && record.at("id") == id);
  }
  for (const auto& ref : reader.guideList()) CHECK(ref.size() == 3);
  for (const auto& idref : reader.spalItemList()) (void)idref;
  for (const auto& chapter : reader.chapters())
    CHECK(!chapter.empty() && chapter[0] != '/' && chapter.rfind("..", 0) != 0);
  return 0;
}
