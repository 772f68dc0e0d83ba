#pragma once

#include <string>

namespace harbor {

// The archive formats, as told by a name or by the first bytes of a file.
enum class ArchiveKind { None, Zip, Rar, SevenZip, Tar, Gzip, Bzip2 };

// By the extension table alone (lower-case extension, no dot).
ArchiveKind archiveKindByExtension(const std::string& extension);
// By content: zip local header or end record (also at the end, for
// self-extracting zips), gzip 1F 8B, "BZh1".."BZh9", "Rar!", the 7z
// signature, a ustar magic or a tar header whose checksum holds.
ArchiveKind archiveKindBySignature(const std::string& path);
// The extension's kind, unless the content says another kind or the
// extension is unknown: then the content's.
ArchiveKind archiveKindOf(const std::string& path);

}  // namespace harbor
