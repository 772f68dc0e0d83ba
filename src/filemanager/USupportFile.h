#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace harbor {

// Hashing that lets an extension map be asked with a string_view.
struct ExtensionHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view s) const { return std::hash<std::string_view>{}(s); }
};

// A lower-case extension to a value. Membership is what counts; the value is
// empty except in the icon table, where it names the image.
using ExtensionMap = std::unordered_map<std::string, std::string, ExtensionHash, std::equal_to<>>;

// A file's kind, decided from its extension alone. The path predicates take a
// path or a name and lower-case its extension; the "...Extension" forms take
// an extension and test it exactly as given.
class USupportFile {
 public:
  USupportFile() = delete;

  // The sets. All are built once and never change, so they are cheap to ask
  // per row while a list is drawn.
  static const ExtensionMap& imageMimeType();
  static const ExtensionMap& webExtension();
  static const ExtensionMap& imageExtension();
  static const ExtensionMap& docTypesExtension();
  static const ExtensionMap& mediaTypesExtension();
  static const ExtensionMap& documentExtension();
  static const ExtensionMap& movieExtension();
  static const ExtensionMap& sysMusicExtension();
  static const ExtensionMap& musicTypesExtension();
  static const ExtensionMap& mediasExtension();  // movies and system music together
  // The flag changes nothing in the set.
  static const ExtensionMap& ffmpegExtension(bool flag);
  static const ExtensionMap& ffmpegExtension();
  static const ExtensionMap& zipExtensions();
  static const ExtensionMap& rarExtensions();
  static const ExtensionMap& gzipExtensions();
  static const ExtensionMap& tarExtensions();
  static const ExtensionMap& bz2Extensions();
  static const ExtensionMap& archive7ZExtensions();
  static const ExtensionMap& defaultSupportArchives();  // zip and rar
  static const ExtensionMap& otherSupportArchives();    // gzip, tar, bz2 and 7z
  // With the flag every archive set, without it only the default ones.
  static const ExtensionMap& archiveExtension(bool all);
  static const ExtensionMap& archiveExtension();
  // What may be handed to the photo library.
  static const ExtensionMap& importToPhotoLibExtension();
  // Extension to image name for kinds without an image of their own.
  static const ExtensionMap& directlyDisplayType();
  static const ExtensionMap& execType();

  // Path predicates.
  static bool isDocumentView(std::string_view path);
  static bool is7Z(std::string_view path);
  static bool isZip(std::string_view path);
  static bool isGZ(std::string_view path);
  static bool isTar(std::string_view path);
  static bool isRar(std::string_view path);
  static bool isBZ2(std::string_view path);
  static bool isArchive(std::string_view path);
  static bool isSystemPreview(std::string_view path);
  static bool isFFMPEGMedia(std::string_view path);
  static bool isMoveMedia(std::string_view path);
  static bool isMediasExtension(std::string_view path);
  static bool isMusicMedia(std::string_view path);
  static bool isSysMusicMedia(std::string_view path);
  static bool isDefauttArchives(std::string_view path);
  static bool isOtherSupportArchives(std::string_view path);
  static bool isSupportImportToPhotoLib(std::string_view path);
  static bool isPhp(std::string_view path);
  static bool isJs(std::string_view path);
  // The extension opens in the editor: a text format of the registry or one
  // the user assigned a syntax to.
  static bool isSystemEdit(std::string_view path);
  // The same for an extension given in lower case.
  static bool isSystemEditExtension(std::string_view extension);

  // Extension forms, not lower-cased.
  static bool isArchiveWithExteinsion(std::string_view extension);
  static bool isSystemPreviewWithExtension(std::string_view extension);
  static bool isSystemPreviewExtension(std::string_view extension);
  static bool isSystemPreviewByExtension(std::string_view extension);
  static bool isMoveMediaWithExtension(std::string_view extension);
  static bool isMusicMediaExtension(std::string_view extension);
  static bool isSysMusicMediaExtension(std::string_view extension);

  // The lower-cased extension of a path, as the predicates see it.
  static std::string lowerExtension(std::string_view path);
};

}  // namespace harbor
