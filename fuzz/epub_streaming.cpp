// The event path over any package text: it must end, and whatever it keeps
// must hold to its own rules (non-empty ids and idrefs).
#include <cstdint>
#include <string>

#include "ParserChecks.h"
#include "viewers/epub/EpubReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string xml(reinterpret_cast<const char*>(data), size);
  harbor::EpubReader reader("/nonexistent-book");
  reader.parserStreamingData(xml);
  for (const auto& [id, record] : reader.manifestItemDict()) {
    CHECK(!id.empty());
    CHECK(record.at("id") == id);
  }
  for (const auto& idref : reader.spalItemList()) CHECK(!idref.empty());
  CHECK(reader.guideList().empty());
  CHECK(reader.chapters().empty());  // no container was read
  return 0;
}
