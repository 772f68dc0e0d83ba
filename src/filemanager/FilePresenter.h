#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "filemanager/FileUtil.h"
#include "filemanager/USupportFile.h"

namespace harbor {

// What the list model asks of the browser that owns it. reloadData and
// restoreSearchState may be called from the browser's worker thread after a
// search; the browser moves them to the main queue itself.
class IFilePresenter {
 public:
  virtual ~IFilePresenter() = default;
  virtual void reloadData() = 0;
  virtual bool isOrderAsc() const = 0;
  virtual void restoreSearchState(bool restore) = 0;
};

// The list model of one browser: a folder, or the hits of a name search in
// it, as sections of full paths, sorted and grouped by the order in force.
// Nothing is cached between listings: each configureSections reads the
// folder again, with one stat at most per entry.
class FilePresenter {
 public:
  using Sections = std::vector<std::vector<std::string>>;

  // The orders, as kept under CommonUtil::kFileTypeOrderKey.
  enum DisplayType : int { kOrderName = 0, kOrderDate = 1, kOrderType = 2, kOrderSize = 3 };
  enum ShowItemsType : int { kShowList = 0, kShowIcons = 1 };

  // An entry as the model sorts it; the attributes are read once per listing.
  struct Item {
    std::string path;
    bool isDirectory = false;
    std::uint64_t size = 0;
    FileUtil::Date modified{};
  };

  static std::unique_ptr<FilePresenter> instanceWithPath(const std::string& path,
                                                         IFilePresenter* delegate);
  // The order comes from the preferences; the view is a list.
  FilePresenter(const std::string& path, IFilePresenter* delegate);

  // Builds the sections from the folder, or from the last search hits while
  // a search is shown. Runs on the main thread.
  void configureSections();
  const Sections& currentItems() const { return _sectionsArray; }
  // Section titles parallel to the sections; nullopt when there are none.
  const std::optional<std::vector<std::string>>& collation() const { return _collation; }

  // Runs on the browser's worker thread. A non-empty text searches the
  // folder's tree by name and shows the hits; an empty one goes back to the
  // listing. When the worker is cancelled meanwhile nothing changes and the
  // browser is not told.
  void searchThread(const std::string& searchText);

  // The loaders: each sorts and groups a working list into the sections.
  void loadNameOrderSection(const std::vector<std::string>& paths);
  void loadDateSection(const std::vector<std::string>& paths);
  void loadFileSizeSection(const std::vector<std::string>& paths);
  void loadTypeSection(const std::vector<std::string>& paths);

  bool isSearchResult() const;
  // The hits of the last search in one list, and their replacement after an
  // operation added or removed some.
  std::vector<std::string> searchHits() const;
  void setSearchHits(std::vector<std::string> hits);
  // Drops the hits that no longer exist.
  void checkFilesExistsAndRemove();
  // The last search stopped at its hit limit: there are more hits than shown.
  bool isSearchTruncated() const;
  int displayType() const { return _displayType; }
  void setDisplayType(int type) { _displayType = type; }
  int showItemstype() const { return _showItemstype; }
  void setShowItemstype(int type) { _showItemstype = type; }
  // Only files whose lower-case extension is a key are listed; folders
  // always are. nullopt lists everything.
  void setFileterType(std::optional<ExtensionMap> filter) { _fileterType = std::move(filter); }
  const std::optional<ExtensionMap>& fileterType() const { return _fileterType; }
  std::uint64_t fileNumber() const { return _fileNumber; }

  const std::string& folderPath() const { return _folderPath; }
  const std::string& parentPath() const { return _parentPath; }
  const std::string& path() const { return _path; }
  std::string fullRelativePath() const;
  std::string fullFolderPath() const;
  bool isRoot() const { return _parentPath.empty(); }

  IFilePresenter* delegate() const { return _delegate; }
  void setDelegate(IFilePresenter* delegate) { _delegate = delegate; }
  const std::optional<std::string>& selectedItem() const { return _selectedItem; }
  void setSelectedItem(std::optional<std::string> item) { _selectedItem = std::move(item); }

  // Selections, made on first use.
  std::vector<std::string>& passwordRows();
  std::vector<std::string>& selectedRows();
  std::set<std::string>& pickSelectedRows();
  void clearPickSelectedRows();
  // The picked paths in the order the sections show them.
  std::vector<std::string> pickItems() const;
  void clearSelectedItems();
  void addSelectedFirstObject(const std::string& path);
  void addSelectedObject(const std::string& path);

 private:
  bool isOrderAsc() const;
  void listFolder(std::vector<Item>& items, bool withAttributes);
  void sortAndGroup(std::vector<Item> items);
  void loadNameOrder(std::vector<Item> items);
  void loadDate(std::vector<Item> items);
  void loadFileSize(std::vector<Item> items);
  void loadType(std::vector<Item> items);
  void dropEmptySections();
  static std::vector<Item> itemsForPaths(const std::vector<std::string>& paths);

  bool _isSearchResult = false;
  bool _isSearchTruncated = false;
  int _displayType = kOrderName;
  int _showItemstype = kShowList;
  Sections _sectionsArray;
  Sections _searchArray;
  std::string _folderPath;
  std::string _parentPath;
  std::string _path;
  std::optional<std::vector<std::string>> _collation;
  std::optional<ExtensionMap> _fileterType;
  std::uint64_t _fileNumber = 0;
  std::optional<std::string> _selectedItem;
  IFilePresenter* _delegate = nullptr;
  std::unique_ptr<std::vector<std::string>> _passwordRows;
  std::unique_ptr<std::vector<std::string>> _selectedRows;
  std::unique_ptr<std::set<std::string>> _pickSelectedRows;

  bool hasListing_ = false;         // a listing was made before
  mutable std::mutex searchMutex_;  // the search state crosses threads
};

}  // namespace harbor
