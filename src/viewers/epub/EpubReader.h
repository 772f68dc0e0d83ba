#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace harbor {

class EpubReader;

// Told when the streaming path reaches the end of the package.
class EpubReaderDelegate {
 public:
  virtual ~EpubReaderDelegate() = default;
  virtual void epubReaderDidEndDocument(EpubReader& reader) = 0;
};

// Reads the package of a book already unpacked into `folder`. Two ways read
// it: `parser` builds a tree, `parserStreaming` takes events. Both refuse
// entity declarations, external subsets and the network, so a hostile book
// can neither read local files nor expand itself. A missing or broken file
// leaves the collections empty; nothing is reported.
class EpubReader {
 public:
  using Record = std::map<std::string, std::string>;

  // The Dublin Core elements read into metadataInfo, by name as written.
  static const std::vector<std::string>& dublinCoreNames();
  // Container and package files larger than this are not read.
  static constexpr std::size_t kMaxXmlBytes = 16u << 20;

  // Reads the container at once.
  explicit EpubReader(std::string folder);

  void parserContain();
  // The package through a tree: metadata, manifest, spine and guide.
  void parser();
  // The package through events: manifest, spine and metadata, no guide.
  void parserStreaming();

  // The same three on text already read (container, package, package).
  void parserContainData(const std::string& xml);
  void parserData(const std::string& xml);
  void parserStreamingData(const std::string& xml);

  // The event callbacks of the streaming path. `attributes` holds
  // name/value pairs as written.
  void didStartElement(std::string_view qualifiedName,
                       const std::vector<std::pair<std::string, std::string>>& attributes);
  void didEndElement(std::string_view qualifiedName);
  void foundCharacters(std::string_view text);
  void didEndDocument();

  void setDelegate(EpubReaderDelegate* delegate) { delegate_ = delegate; }

  const std::string& folder() const { return folder_; }
  // Empty when the container names no usable root file.
  const std::string& containFullPath() const { return containFullPath_; }
  const std::string& containMediaType() const { return containMediaType_; }
  const std::map<std::string, std::string>& metadataInfo() const { return metadataInfo_; }
  const std::map<std::string, Record>& manifestItemDict() const { return manifestItemDict_; }
  const std::vector<std::string>& spalItemList() const { return spalItemList_; }
  const std::vector<Record>& guideList() const { return guideList_; }

  // The spine through the manifest to files, relative to `folder`. An idref
  // without an item, or an href that leaves the folder, gives nothing.
  std::vector<std::string> chapters() const;

  // Where `href` (relative to the package's folder, URL-escaped, maybe with
  // a fragment) lands relative to `folder`; empty when it leaves it.
  std::string resolveHref(std::string_view href) const;

 private:
  std::string getMetaInfPath() const;
  std::string packagePath() const;

  std::string folder_;
  std::string containFullPath_;
  std::string containMediaType_;
  std::map<std::string, std::string> metadataInfo_;
  std::string foundString_;
  std::map<std::string, Record> manifestItemDict_;
  std::vector<std::string> spalItemList_;
  std::vector<Record> guideList_;
  EpubReaderDelegate* delegate_ = nullptr;
};

}  // namespace harbor
