// Any bytes as a saved undo journal: loading either refuses it or gives a
// journal that undoes and redoes everything without going out of range.
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "editor/UnDoManager.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto json = nlohmann::json::parse(data, data + size, nullptr, false);
  if (json.is_discarded()) return 0;
  auto journal = harbor::UnDoManager::unarchive(json, nullptr);
  if (!journal) return 0;
  // Undoing everything and coming back must hold together: the item
  // checks at load time are what keeps each step inside the text.
  const bool hadRedo = journal->isCanRedo();
  const std::u16string start = journal->getSourceString();
  std::size_t undone = 0;
  while (journal->isCanUndo()) {
    journal->undo();
    ++undone;
  }
  for (std::size_t i = 0; i < undone; ++i) journal->redo();
  if (journal->getSourceString() != start) std::abort();
  if (!hadRedo) return 0;
  while (journal->isCanRedo()) journal->redo();
  return 0;
}
