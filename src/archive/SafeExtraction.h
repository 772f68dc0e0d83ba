#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

namespace harbor {

// The rules every extractor follows so that nothing lands outside its
// destination and nothing half-written is left under a final name.
namespace extraction {

// 32 random hex digits, for temporary names that must not collide.
std::string uniqueName();
// A hidden name beside `target` (".NAME.part-<unique>"), where a file is
// written before it takes its final name.
std::string temporaryBeside(const std::string& target);

// Where `relative` lands under `destination`, or none with `reason` set:
// an absolute name, a ".." component, or a folder on the way that is a link
// (made by an earlier entry) would carry the entry somewhere else.
std::optional<std::string> safeTarget(const std::string& destination, const std::string& relative,
                                      std::string& reason);

// Whether a link at `linkPath` (inside `destination`) to `target` stays inside.
bool linkStaysInside(const std::string& destination, const std::string& linkPath,
                     const std::string& target);

// Replaces whatever is at `linkPath` with a link to `target`; false on failure.
bool replaceWithLink(const std::string& linkPath, const std::string& target);

enum class WriteResult {
  written,
  produceFailed,  // the producer gave up (damage, cancellation)
  ioFailed,       // the file could not be created, written or renamed
};

// Writes a file through `produce`, which calls `sink` with each block and
// answers success. The data goes to a hidden temporary name beside the target
// and is renamed only on success; a failure leaves nothing behind.
using Sink = std::function<bool(const char*, std::size_t)>;
WriteResult writeFileAtomically(const std::string& target,
                                const std::function<bool(const Sink&)>& produce);

}  // namespace extraction
}  // namespace harbor
